// Parses device and configuration descriptors: USB 2.0 section 9.6. Does no I/O.
#ifndef YORVAN_PORT_BUS_DESCRIPTORS_H_
#define YORVAN_PORT_BUS_DESCRIPTORS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace yusb::port {

constexpr std::size_t device_descriptor_size = 18;  // USB 2.0 table 9-8; a device may send more

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
  std::vector<interface_descriptor> interfaces;  // one per number: alternate setting 0, otherwise the first
};

// Empty if the bytes are too few or not a device descriptor.
std::optional<device_descriptor> parse_device_descriptor(std::string_view bytes);

// Returns the configuration with that bConfigurationValue, or the first one if `value` is 0. `bytes` are the
// device descriptor followed by all configurations with their descriptors. Descriptors of other types are
// skipped. Parsing stops at a descriptor with an impossible length; the descriptors before it count. Empty if
// there is no such configuration. Throws std::bad_alloc.
std::optional<configuration_descriptor> find_configuration(std::string_view bytes, std::uint8_t value);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_DESCRIPTORS_H_
