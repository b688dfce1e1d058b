// Where a device is attached, as a path of ports and as a location ID.
//
// A path is what Linux calls a USB device: "usb1" for the root hub of bus 1, "1-2.3" for the device at port 3
// of the hub at port 2 of bus 1. Numbers are decimal, start at 1, and have no leading zero and at most nine
// digits.
#ifndef YORVAN_PORT_BUS_LOCATION_H_
#define YORVAN_PORT_BUS_LOCATION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace yusb::port {

bool is_device_path(std::string_view path);

// Tree order: a hub, then everything behind it, then the hub's next sibling. Both must be paths.
bool path_before(std::string_view a, std::string_view b);

// The number of the bus that a path is on.
std::uint32_t bus_of(std::string_view path);

// True for the hub itself and everything behind it. Both must be paths.
bool is_within(std::string_view path, std::string_view hub);

// The location ID of a path; empty if it is none.
//
// The bus is the top byte, and each port is one hexadecimal digit after it: "1-2.3" is 0x01230000, "usb1"
// 0x01000000. A path that does not fit (a port above 15, a bus above 255, more than six ports) gets a value
// that no fitting path has: the bus, or 0 for one above 255, in the top byte, then the digit 0, then 20 bits
// of a hash of the path. Two such paths may collide: next_location tells apart those that are attached
// together. Never 0.
std::optional<std::uint32_t> location_of(std::string_view path);

// The only path with that location, or empty if there is none or may_collide is true.
std::string path_of(std::uint32_t location);

// False for the location of a path that fits: no other path has it.
bool may_collide(std::uint32_t location);

// The location to try where another device already has this one; comes round to the first after 1,048,575
// others.
std::uint32_t next_location(std::uint32_t taken);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_LOCATION_H_
