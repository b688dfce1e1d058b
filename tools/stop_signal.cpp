#include "stop_signal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace yusb::tool {

namespace {

constexpr std::array<int, 2> _signals{SIGINT, SIGTERM};

volatile std::sig_atomic_t _write_end = -1;  // of the pipe; global because a signal handler uses it
std::array<struct sigaction, _signals.size()> _previous;

extern "C" void on_signal(int) {
  const int kept = errno;
  static_cast<void>(!write(_write_end, "", 1));  // a full pipe is readable already
  errno = kept;
}

}  // namespace

stop_signal::stop_signal() {
  int ends[2];
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  _read_end = ends[0];
  _write_end = ends[1];
  for (std::size_t i = 0; i < _signals.size(); ++i) {
    struct sigaction action {};
    action.sa_handler = on_signal;  // no SA_RESTART: a signal interrupts a write that waits for a reader
    sigemptyset(&action.sa_mask);
    sigaction(_signals[i], nullptr, &_previous[i]);
    if (_previous[i].sa_handler != SIG_IGN) sigaction(_signals[i], &action, nullptr);
  }
}

stop_signal::~stop_signal() {
  for (std::size_t i = 0; i < _signals.size(); ++i) sigaction(_signals[i], &_previous[i], nullptr);
  close(_read_end);
  close(_write_end);
  _write_end = -1;
}

void stop_signal::request() noexcept { on_signal(0); }

void stop_signal::wait(int output) const {
  // Linux always reports POLLERR and POLLHUP, macOS only if some event is requested.
  pollfd watched[] = {{_read_end, POLLIN, 0}, {output, POLLHUP, 0}};
  while (true) {
    if (poll(watched, 2, -1) < 0) continue;  // interrupted by a signal, so the pipe is readable
    if (watched[0].revents != 0 || (watched[1].revents & (POLLERR | POLLHUP)) != 0) return;
    if (watched[1].revents != 0) watched[1].fd = -1;  // cannot be polled
  }
}

}  // namespace yusb::tool
