// The descriptors of a device, as it sent them: USB 2.0 section 9.6. Does no I/O.
#ifndef YORVAN_PORT_BUS_DESCRIPTORS_H_
#define YORVAN_PORT_BUS_DESCRIPTORS_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace yusb::port {

struct device_descriptor {
  std::uint16_t usb_version;
  std::uint8_t class_code, subclass, protocol;
  std::uint16_t vendor, product, release;
  std::array<std::uint8_t, 3> string_index;  // manufacturer, product, serial number; 0 for none
  std::uint8_t configurations;
};

struct interface_descriptor {
  std::uint8_t number, alternate, class_code, subclass, protocol, string_index;
};

struct configuration_descriptor {
  std::uint8_t max_power;                        // in units of 2 mA, or 8 mA at 5000 Mbit/s and above
  std::vector<interface_descriptor> interfaces;  // each number once: alternate setting 0, or else its first
};

// Empty if the bytes are too few or not those of a device descriptor.
std::optional<device_descriptor> parse_device_descriptor(std::string_view bytes);

// The configuration with that bConfigurationValue, or the first one for 0, in what follows the device
// descriptor: every configuration with all that belongs to it, one behind the other. Descriptors of other
// types are skipped. Reading stops at a descriptor whose length cannot be: what came before it counts. Empty
// if there is no such configuration. Throws std::bad_alloc.
std::optional<configuration_descriptor> find_configuration(std::string_view bytes, std::uint8_t value);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_DESCRIPTORS_H_
