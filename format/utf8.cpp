#include "utf8.h"

#include <cstdio>

namespace yusb::format {

namespace {

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::string utf8(const YString& text) {
  std::string out;
  for (const char c : std::string_view(text.data(), text.size()))
    append_utf8(out, static_cast<unsigned char>(c));
  return out;
}

std::optional<YString> record_text(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    char32_t code_point = 0;
    if (!take_code_point(text, &code_point)) return std::nullopt;
    // Above the basic plane there are two units. The low byte of the first, the high surrogate, has bits 10
    // to 17 of the offset from the plane; that of the second has the low bits of the code point.
    if (code_point > 0xFFFF) bytes += static_cast<char>((code_point - 0x10000) >> 10);
    bytes += static_cast<char>(code_point);
  }
  return YString(bytes.data(), bytes.size());
}

std::string visible(std::string_view text, char kept) {
  std::string out;
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    char32_t code_point = byte;
    const bool well_formed = take_code_point(text, &code_point);
    const bool control = code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0);
    if (!well_formed || (control && static_cast<char>(code_point) != kept)) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(code_point));
      out += escaped;
    } else {
      append_utf8(out, code_point);
    }
  }
  return out;
}

std::size_t width(std::string_view text) {
  std::size_t characters = 0;
  for (const char c : text)
    characters += is_continuation(c) ? 0 : 1;  // every character of Latin-1 is one column wide
  return characters;
}

}  // namespace yusb::format
