#include "hex.h"

#include <charconv>

namespace yusb::format {

std::optional<std::uint32_t> parse_hex(std::string_view text, std::size_t digits) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  if (text.size() > digits) return std::nullopt;
  const auto [rest, error] = std::from_chars(text.data(), end, value, 16);
  if (error != std::errc() || rest != end) return std::nullopt;
  return value;
}

std::vector<std::uint8_t> parse_class(std::string_view text) {
  std::vector<std::uint8_t> numbers;
  while (true) {
    const std::size_t end = text.find('/');
    const auto number = parse_hex(text.substr(0, end), 2);
    if (!number || numbers.size() == 3) return {};
    numbers.push_back(static_cast<std::uint8_t>(*number));
    if (end == std::string_view::npos) return numbers;
    text.remove_prefix(end + 1);
  }
}

std::optional<device_id> parse_device_id(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto vendor = parse_hex(text.substr(0, colon), 4);
  const auto product = parse_hex(text.substr(colon + 1), 4);
  if (!vendor || !product) return std::nullopt;
  return device_id{static_cast<std::uint16_t>(*vendor), static_cast<std::uint16_t>(*product)};
}

}  // namespace yusb::format
