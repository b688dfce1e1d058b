// A file descriptor that is closed with its owner.
#ifndef YORVAN_PORT_LINUX_UNIQUE_FD_H_
#define YORVAN_PORT_LINUX_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace yusb::port {

class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : _fd(fd) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    std::swap(_fd, other._fd);
    return *this;
  }
  ~unique_fd() {
    if (_fd >= 0) close(_fd);
  }

  int get() const { return _fd; }  // -1 if there is none
  explicit operator bool() const { return _fd >= 0; }

 private:
  int _fd = -1;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UNIQUE_FD_H_
