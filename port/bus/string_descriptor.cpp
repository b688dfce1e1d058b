#include "bus/string_descriptor.h"

#include <algorithm>

#include <yusb_details/utf8.h>

namespace yusb::port {

string_descriptor encode_string_descriptor(std::string_view utf8) {
  string_descriptor made;
  std::size_t size = 2;
  const auto put = [&](std::uint32_t unit) {
    made.bytes[size++] = static_cast<std::uint8_t>(unit & 0xFF);
    made.bytes[size++] = static_cast<std::uint8_t>(unit >> 8);
  };
  // Fast path: most strings are all ASCII.
  const auto not_ascii = std::find_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0x80) != 0; });
  const std::size_t ascii =
      std::min<std::size_t>(not_ascii - utf8.begin(), (string_descriptor_limit - size) / 2);
  for (std::size_t i = 0; i < ascii; ++i, size += 2) {
    made.bytes[size] = static_cast<std::uint8_t>(utf8[i]);
    made.bytes[size + 1] = 0;
  }
  utf8.remove_prefix(ascii);
  while (!utf8.empty()) {
    char32_t point = 0xFFFD;
    detail::take_code_point(utf8, &point);
    const std::size_t needed = point < 0x10000 ? 2 : 4;
    if (size + needed > string_descriptor_limit) break;
    if (point < 0x10000) {
      put(point);
    } else {
      put(0xD800 + ((point - 0x10000) >> 10));
      put(0xDC00 + ((point - 0x10000) & 0x3FF));
    }
  }
  made.bytes[0] = static_cast<std::uint8_t>(size);
  made.bytes[1] = 3;
  made.size = size;
  return made;
}

std::string decode_string_descriptor(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  std::uint32_t high = 0;  // a high surrogate whose low surrogate is expected next
  for (std::size_t at = 2; at + 1 < size; at += 2) {
    const std::uint32_t unit = bytes[at] | std::uint32_t{bytes[at + 1]} << 8;
    if (unit == 0) break;
    std::uint32_t point = unit;
    if (unit >= 0xDC00 && unit < 0xE000 && high != 0)
      point = 0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00);
    high = unit >= 0xD800 && unit < 0xDC00 ? unit : 0;
    if (point >= 0xD800 && point < 0xE000) continue;
    detail::append_utf8(text, point);
  }
  return text;
}

}  // namespace yusb::port
