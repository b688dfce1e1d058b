// Converts between the two names of the place where a device is attached: the port path
// (usb_details::port_path) and the location ID (a record's location). Link the bus library.
//
// A port path is Linux's name for a USB device: "usb1" is the root hub of bus 1, "1-2.3" is the device at
// port 3 of the hub at port 2 of bus 1. Numbers are decimal, start at 1, have no leading zero and at most
// nine digits. All functions may be called from any thread.
#ifndef YUSB_LOCATION_H_
#define YUSB_LOCATION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <yusb_bus.h>

namespace yusb {

// True if `path` is a port path.
YUSB_BUS_EXPORT bool is_port_path(std::string_view path) noexcept;

// True if `a` is before `b` in tree order: a hub, then all devices behind it, then the hub's next sibling.
// Both must be port paths.
YUSB_BUS_EXPORT bool port_path_before(std::string_view a, std::string_view b) noexcept;

// True if `path` is the hub itself or behind it. Both must be port paths.
YUSB_BUS_EXPORT bool port_path_within(std::string_view path, std::string_view hub) noexcept;

// Returns the bus number of a port path. `path` must be a port path.
YUSB_BUS_EXPORT std::uint32_t bus_of_path(std::string_view path) noexcept;

// Returns the location ID of a port path on Linux, never 0; empty if `path` is not a port path.
//
// The bus number is the top byte, followed by one hexadecimal digit per port: "1-2.3" is 0x01230000, "usb1"
// is 0x01000000. A path that does not fit (a port above 15, a bus above 255, more than six ports) gets a
// location that no fitting path has: the bus number (0 if it is above 255) in the top byte, then the digit 0,
// then 20 bits of a hash of the path. Two paths that do not fit may get the same location. If both devices
// are attached, the second gets the result of next_location.
YUSB_BUS_EXPORT std::optional<std::uint32_t> location_of_path(std::string_view path) noexcept;

// Returns the only port path with that location; empty if there is none or if location_may_collide(location).
// Throws std::bad_alloc.
YUSB_BUS_EXPORT std::string path_of_location(std::uint32_t location);

// False for the location of a port path that fits: no other path has it. True for a hash.
YUSB_BUS_EXPORT bool location_may_collide(std::uint32_t location) noexcept;

// Returns the location to try next if another device has this one, which is a hash. After 1,048,575 others it
// returns the first one again.
YUSB_BUS_EXPORT std::uint32_t next_location(std::uint32_t taken) noexcept;

}  // namespace yusb

#endif  // YUSB_LOCATION_H_
