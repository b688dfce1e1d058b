#include "service.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>
#include <utility>

#include "topic.h"

namespace yusb::fleet {

void notify_service(const std::string& state) {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path == nullptr || (path[0] != '/' && path[0] != '@') || std::strlen(path) >= sizeof address.sun_path)
    return;
  std::strcpy(address.sun_path, path);
  if (path[0] == '@') address.sun_path[0] = '\0';  // the abstract namespace
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
  // A service manager that does not read must not stop the service.
  sendto(descriptor, state.data(), state.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
         reinterpret_cast<sockaddr*>(&address), size);
  close(descriptor);
}

std::optional<std::chrono::milliseconds> watchdog_limit() {
  const char* const text = std::getenv("WATCHDOG_USEC");
  const char* const process = std::getenv("WATCHDOG_PID");
  if (text == nullptr || (process != nullptr && std::to_string(getpid()) != process)) return std::nullopt;
  long long microseconds = 0;
  std::from_chars(text, text + std::strlen(text), microseconds);
  if (microseconds < 2000) return std::nullopt;
  return std::chrono::milliseconds(microseconds / 1000);
}

int on_termination(loop& loop, std::function<void()> stop) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM}) {
    struct sigaction before {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaddset(&signals, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  loop.watch(descriptor, EPOLLIN, [descriptor, stop = std::move(stop)](std::uint32_t) {
    signalfd_siginfo info;
    if (read(descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) stop();
  });
  return descriptor;
}

std::string machine_name() {
  std::ifstream in("/etc/machine-id");
  std::string text;
  if (!std::getline(in, text) || text.empty()) {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    text = name;
  }
  return hex(hash("yusb-fleet " + text));
}

}  // namespace yusb::fleet
