// The two ways to say where a device is attached: as a port path (usb_details::port_path) and as a location
// ID (a record's location). Link the bus library.
//
// A port path is what Linux calls a USB device: "usb1" is the root hub of bus 1, "1-2.3" the device at port 3
// of the hub at port 2 of bus 1. Numbers are decimal, start at 1, and have no leading zero and at most nine
// digits.
#ifndef YUSB_LOCATION_H_
#define YUSB_LOCATION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <yusb_bus.h>

namespace yusb {

// True for a port path. From any thread.
YUSB_BUS_EXPORT bool is_port_path(std::string_view path) noexcept;

// True if `a` is before `b` in tree order: a hub, then everything behind it, then the hub's next sibling.
// Both must be port paths. From any thread.
YUSB_BUS_EXPORT bool port_path_before(std::string_view a, std::string_view b) noexcept;

// True for the hub itself and everything behind it. Both must be port paths. From any thread.
YUSB_BUS_EXPORT bool port_path_within(std::string_view path, std::string_view hub) noexcept;

// The number of the bus that a port path is on. `path` must be one. From any thread.
YUSB_BUS_EXPORT std::uint32_t bus_of_path(std::string_view path) noexcept;

// The location ID that a port path has on Linux, never 0; empty if it is no port path. From any thread.
//
// The bus is the top byte, and each port is one hexadecimal digit after it: "1-2.3" is 0x01230000, "usb1"
// 0x01000000. A path that does not fit (a port above 15, a bus above 255, more than six ports) gets a value
// that no fitting path has: the bus, or 0 for one above 255, in the top byte, then the digit 0, then 20 bits
// of a hash of the path. Two paths that do not fit may have the same value: next_location tells apart those
// that are attached together.
YUSB_BUS_EXPORT std::optional<std::uint32_t> location_of_path(std::string_view path) noexcept;

// The only port path with that location; empty if there is none or if location_may_collide. From any thread.
// Throws std::bad_alloc.
YUSB_BUS_EXPORT std::string path_of_location(std::uint32_t location);

// False for the location of a port path that fits: no other path has it. From any thread.
YUSB_BUS_EXPORT bool location_may_collide(std::uint32_t location) noexcept;

// The location to try where another device already has this one, which may collide. After 1,048,575 others it
// is the first one again. From any thread.
YUSB_BUS_EXPORT std::uint32_t next_location(std::uint32_t taken) noexcept;

}  // namespace yusb

#endif  // YUSB_LOCATION_H_
