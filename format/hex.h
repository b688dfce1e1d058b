// Hexadecimal numbers as the user writes them.
#ifndef YUSB_FORMAT_HEX_H_
#define YUSB_FORMAT_HEX_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace yusb::format {

// Empty unless `text` is a number of 1 to `digits` hexadecimal digits, with or without 0x.
std::optional<std::uint32_t> parse_hex(std::string_view text, std::size_t digits);

struct device_id {
  std::uint16_t vendor;
  std::uint16_t product;
};

// CC, CC/SS or CC/SS/PP: class, subclass and protocol, hexadecimal, as many as are given. Empty if `text` is
// none of these.
std::vector<std::uint8_t> parse_class(std::string_view text);

// VVVV:PPPP, hexadecimal.
std::optional<device_id> parse_device_id(std::string_view text);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_HEX_H_
