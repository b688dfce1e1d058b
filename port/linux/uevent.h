// A uevent of the Linux kernel: a USB device was attached or detached.
#ifndef YORVAN_PORT_LINUX_UEVENT_H_
#define YORVAN_PORT_LINUX_UEVENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bus/bus.h"

namespace yusb::port {

struct uevent {
  bool added = false;  // otherwise removed
  std::string path;    // a port path
  // The device's address on its bus, which a device attached later at the same port does not share.
  std::uint32_t devnum = 0;
  device_numbers numbers;  // all 0 if they are not known
};

// Parses one datagram of the kernel's uevent socket: a header, then KEY=value fields, each ended by a zero
// byte. Empty if it is malformed, or not about the arrival or removal of a USB device (but, for instance,
// about an interface).
std::optional<uevent> parse_uevent(std::string_view datagram);

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UEVENT_H_
