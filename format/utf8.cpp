#include "utf8.h"

#include <cstdio>

namespace yusb::format {

namespace {

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The length of the sequence that begins with this byte; 0 if none can.
std::size_t sequence_length(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

}  // namespace

bool take_code_point(std::string_view& text, char32_t* code_point) {
  // The smallest code point by length: a sequence longer than needed is malformed.
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = sequence_length(lead);
  bool well_formed = length != 0 && length <= text.size();
  char32_t value = length <= 1 ? lead : lead & (0xFF >> (length + 1));
  for (std::size_t i = 1; well_formed && i < length; ++i) {
    well_formed = is_continuation(text[i]);
    value = (value << 6) | (static_cast<unsigned char>(text[i]) & 0x3F);
  }
  well_formed =
      well_formed && value >= smallest[length] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
  text.remove_prefix(well_formed ? length : 1);
  if (well_formed) *code_point = value;
  return well_formed;
}

void append_utf8(std::string& out, char32_t code_point) {
  const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((code_point >> shift) & 0x3F)); };
  if (code_point < 0x80) {
    out += static_cast<char>(code_point);
  } else if (code_point < 0x800) {
    out += static_cast<char>(0xC0 | (code_point >> 6));
    tail(0);
  } else if (code_point < 0x10000) {
    out += static_cast<char>(0xE0 | (code_point >> 12));
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0 | (code_point >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

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
