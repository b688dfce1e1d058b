#ifndef YUSB_TOOLS_NUMBER_H_
#define YUSB_TOOLS_NUMBER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace yusb::tool {

// A hexadecimal number of 1 to `digits` digits, with or without 0x, and nothing else.
std::optional<std::uint32_t> parse_hexadecimal(std::string_view text, std::size_t digits);

struct device_id {
  std::uint16_t vendor;
  std::uint16_t product;
};

// VVVV:PPPP, hexadecimal.
std::optional<device_id> parse_device_id(std::string_view text);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_NUMBER_H_
