// What the Linux kernel announces: a USB device has come or gone.
#ifndef YORVAN_PORT_LINUX_UEVENT_H_
#define YORVAN_PORT_LINUX_UEVENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace yusb::port {

// The numbers of a device descriptor; all 0 where they are not known.
struct device_numbers {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0;
};

struct uevent {
  bool added = false;  // else removed
  std::string path;    // "1-2.3"; see yusb_location.h
  std::uint32_t devnum =
      0;  // the device's address on its bus, which a device attached later at the same port does not share
  device_numbers numbers;
};

// Reads one datagram of the kernel's uevent socket: a header, then KEY=value fields, each ended by a zero
// byte. Empty if it is not about a USB device (an interface of one, say) that came or went, or is not well
// formed.
std::optional<uevent> parse_uevent(std::string_view datagram);

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UEVENT_H_
