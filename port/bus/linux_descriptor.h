// A file descriptor that is closed with its owner.
#ifndef YORVAN_PORT_BUS_LINUX_DESCRIPTOR_H_
#define YORVAN_PORT_BUS_LINUX_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace yusb::port {

class descriptor {
 public:
  descriptor() = default;
  explicit descriptor(int number) : _number(number) {}
  descriptor& operator=(descriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  ~descriptor() {
    if (_number >= 0) close(_number);
  }

  int number() const { return _number; }  // -1 if there is none
  explicit operator bool() const { return _number >= 0; }

 private:
  int _number = -1;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_LINUX_DESCRIPTOR_H_
