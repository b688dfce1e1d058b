// What the Linux kernel announces: a USB device has come or gone.
#ifndef YORVAN_PORT_LINUX_UEVENT_H_
#define YORVAN_PORT_LINUX_UEVENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bus/bus.h"

namespace yusb::port {

struct uevent {
  bool added = false;  // else removed
  std::string path;    // a port path
  // The device's address on its bus, which a device attached later at the same port does not share.
  std::uint32_t devnum = 0;
  device_numbers numbers;  // all 0 where they are not known
};

// Reads one datagram of the kernel's uevent socket: a header, then KEY=value fields, each ended by a zero
// byte. Empty if it is not about a USB device (an interface of one, say) that came or went, or is not well
// formed.
std::optional<uevent> parse_uevent(std::string_view datagram);

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UEVENT_H_
