// UTF-8 functions for the strings of yusb_details.h and for this project's programs. Not part of the public
// interface.
#ifndef YUSB_DETAILS_UTF8_H_
#define YUSB_DETAILS_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace yusb::detail {

// Removes the first code point from `text`, which must not be empty, and stores it. If `text` does not begin
// with well-formed UTF-8, removes one byte and returns false.
inline bool take_code_point(std::string_view& text, char32_t* code_point) noexcept {
  // The smallest code point by length: a sequence longer than needed is malformed.
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const char32_t lead = byte(0);
  const std::size_t length = lead < 0x80                   ? 1
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  bool well_formed = length != 0 && length <= text.size();
  char32_t value = length <= 1 ? lead : lead & (0xFFu >> (length + 1));
  for (std::size_t i = 1; well_formed && i < length; ++i) {
    well_formed = (byte(i) & 0xC0) == 0x80;
    value = (value << 6) | (byte(i) & 0x3Fu);
  }
  well_formed =
      well_formed && value >= smallest[length] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
  text.remove_prefix(well_formed ? length : 1);
  if (well_formed) *code_point = value;
  return well_formed;
}

inline void append_utf8(std::string& out, char32_t code_point) {
  const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80 | ((code_point >> shift) & 0x3F)); };
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

}  // namespace yusb::detail

#endif  // YUSB_DETAILS_UTF8_H_
