#include "bus/string_descriptor.h"

#include <algorithm>

namespace yusb::port {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// Reads one code point and moves `at` behind it.
std::uint32_t decode(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t first = byte(at++);
  if (first < 0x80) return first;
  const int following = first >= 0xC2 && first < 0xE0   ? 1
                        : first >= 0xE0 && first < 0xF0 ? 2
                        : first >= 0xF0 && first < 0xF5 ? 3
                                                        : 0;
  if (following == 0) return kReplacement;
  std::uint32_t point = first & (0x3Fu >> following);
  for (int i = 0; i < following; ++i) {
    const std::size_t next = at + static_cast<std::size_t>(i);
    if (next >= text.size() || (byte(next) & 0xC0) != 0x80) return kReplacement;
    point = point << 6 | (byte(next) & 0x3Fu);
  }
  constexpr std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
  if (point < smallest[following] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000))
    return kReplacement;
  at += static_cast<std::size_t>(following);
  return point;
}

}  // namespace

string_descriptor encode_string_descriptor(std::string_view utf8) {
  string_descriptor made;
  std::size_t size = 2;
  const auto put = [&](std::uint32_t unit) {
    made.bytes[size++] = static_cast<std::uint8_t>(unit & 0xFF);
    made.bytes[size++] = static_cast<std::uint8_t>(unit >> 8);
  };
  // Most texts are ASCII from end to end.
  const auto not_ascii = std::find_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0x80) != 0; });
  std::size_t at = std::min<std::size_t>(not_ascii - utf8.begin(), (string_descriptor_limit - size) / 2);
  for (std::size_t i = 0; i < at; ++i, size += 2) {
    made.bytes[size] = static_cast<std::uint8_t>(utf8[i]);
    made.bytes[size + 1] = 0;
  }
  while (at < utf8.size()) {
    const std::uint32_t point = decode(utf8, at);
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
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  std::uint32_t high = 0;  // a surrogate that waits for its other half
  for (std::size_t at = 2; at + 1 < size; at += 2) {
    const std::uint32_t unit = bytes[at] | std::uint32_t{bytes[at + 1]} << 8;
    if (unit == 0) break;
    std::uint32_t point = unit;
    if (unit >= 0xDC00 && unit < 0xE000 && high != 0)
      point = 0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00);
    high = unit >= 0xD800 && unit < 0xDC00 ? unit : 0;
    if (point >= 0xD800 && point < 0xE000) continue;
    if (point >= 0x10000) {
      put(0xF0 | point >> 18);
      put(0x80 | (point >> 12 & 0x3F));
    } else if (point >= 0x800) {
      put(0xE0 | point >> 12);
    }
    if (point >= 0x800) put(0x80 | (point >> 6 & 0x3F));
    if (point >= 0x80 && point < 0x800) put(0xC0 | point >> 6);
    put(point < 0x80 ? point : 0x80 | (point & 0x3F));
  }
  return text;
}

}  // namespace yusb::port
