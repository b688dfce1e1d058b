#include "bus/descriptors.h"

#include <algorithm>

namespace yusb::port {

namespace {

// bDescriptorType: USB 2.0 table 9-5.
constexpr std::uint8_t type_device = 1;
constexpr std::uint8_t type_configuration = 2;
constexpr std::uint8_t type_interface = 4;

// bLength: USB 2.0 tables 9-10, 9-12. A device may send more.
constexpr std::size_t configuration_size = 9;
constexpr std::size_t interface_size = 9;

std::uint8_t byte(std::string_view bytes, std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); }

std::uint16_t word(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint16_t>(byte(bytes, at) | byte(bytes, at + 1) << 8);
}

void add_interface(std::vector<interface_descriptor>& interfaces, const interface_descriptor& found) {
  const auto same = std::find_if(interfaces.begin(), interfaces.end(), [&](const interface_descriptor& each) {
    return each.number == found.number;
  });
  if (same == interfaces.end()) {
    interfaces.push_back(found);
  } else if (same->alternate != 0 && found.alternate == 0) {
    *same = found;
  }
}

}  // namespace

std::optional<device_descriptor> parse_device_descriptor(std::string_view bytes) {
  if (bytes.size() < device_descriptor_size || byte(bytes, 0) < device_descriptor_size ||
      byte(bytes, 1) != type_device)
    return std::nullopt;
  return device_descriptor{
      word(bytes, 2), byte(bytes, 4),  byte(bytes, 5),  byte(bytes, 6),
      word(bytes, 8), word(bytes, 10), word(bytes, 12), {byte(bytes, 14), byte(bytes, 15), byte(bytes, 16)},
      byte(bytes, 17)};
}

std::optional<configuration_descriptor> find_configuration(std::string_view bytes, std::uint8_t value) {
  std::optional<configuration_descriptor> found;
  bytes.remove_prefix(std::min(device_descriptor_size, bytes.size()));
  // wTotalLength is not used: the kernel removes invalid descriptors without changing it.
  while (bytes.size() >= 2) {
    const std::size_t length = byte(bytes, 0);
    const std::uint8_t type = byte(bytes, 1);
    if (length < 2 || length > bytes.size()) break;
    if (type == type_configuration && length >= configuration_size) {
      if (found.has_value()) break;
      if (value == 0 || byte(bytes, 5) == value) found.emplace().max_power = byte(bytes, 8);
    } else if (type == type_interface && length >= interface_size && found.has_value()) {
      add_interface(found->interfaces, {byte(bytes, 2), byte(bytes, 3), byte(bytes, 5), byte(bytes, 6),
                                        byte(bytes, 7), byte(bytes, 8)});
    }
    bytes.remove_prefix(length);
  }
  return found;
}

}  // namespace yusb::port
