#include "output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace yusb::tool {

bool output::may_write() const {
  pollfd watched[] = {{STDOUT_FILENO, POLLOUT, 0}, {_stop, POLLIN, 0}};
  while (poll(watched, 2, -1) < 0) continue;
  return watched[0].revents != 0;
}

bool output::write(std::string_view text) {
  while (!text.empty() && !_ended) {
    if (!may_write()) {
      _ended = true;
      break;
    }
    // A pipe that is ready takes PIPE_BUF bytes at once. Writing more could block, and block out the stop.
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      _ended = true;
      _errno = errno;
    }
  }
  return !_ended;
}

bool output::check() const {
  if (_errno == 0 || _errno == EPIPE) return true;
  complain(std::string("cannot write to standard output: ") + std::strerror(_errno));
  return false;
}

bool coloured_output() {
  const char* const refused = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
         std::strcmp(terminal, "dumb") != 0;
}

std::optional<std::size_t> terminal_width() {
  if (isatty(STDOUT_FILENO) == 0) return std::nullopt;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const char* const columns = std::getenv("COLUMNS");
  std::size_t given = 0;
  if (columns != nullptr) std::from_chars(columns, columns + std::strlen(columns), given);
  return given > 0 ? given : 80;
}

void complain(const std::string& message) {
  const std::string line = "yusb: " + message + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void occupy_standard_descriptors() {
  // Read-only, so that writing to a descriptor that was closed still fails.
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) static_cast<void>(!open("/dev/null", O_RDONLY));
  }
}

}  // namespace yusb::tool
