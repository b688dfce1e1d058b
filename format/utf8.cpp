#include "utf8.h"

#include <utf8proc.h>

#include <cstdint>
#include <cstdlib>

#include <fmt/format.h>

namespace yusb::format {

namespace {

const utf8proc_uint8_t* bytes_of(std::string_view text) {
  return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

bool is_control(char32_t code_point) {
  return utf8proc_category(static_cast<utf8proc_int32_t>(code_point)) == UTF8PROC_CATEGORY_CC;
}

bool steers_text(char32_t code_point) {
  // Marks of direction, and what has no width and joins nothing.
  for (const char32_t invisible : {0x061C, 0x200B, 0x200E, 0x200F, 0xFEFF}) {
    if (code_point == invisible) return true;
  }
  const utf8proc_property_t* const property =
      utf8proc_get_property(static_cast<utf8proc_int32_t>(code_point));
  if (property->category == UTF8PROC_CATEGORY_ZL || property->category == UTF8PROC_CATEGORY_ZP) return true;
  switch (property->bidi_class) {
    case UTF8PROC_BIDI_CLASS_LRE:
    case UTF8PROC_BIDI_CLASS_LRO:
    case UTF8PROC_BIDI_CLASS_RLE:
    case UTF8PROC_BIDI_CLASS_RLO:
    case UTF8PROC_BIDI_CLASS_PDF:
    case UTF8PROC_BIDI_CLASS_LRI:
    case UTF8PROC_BIDI_CLASS_RLI:
    case UTF8PROC_BIDI_CLASS_FSI:
    case UTF8PROC_BIDI_CLASS_PDI:
      return true;
    default:
      return false;
  }
}

std::size_t cells_of(char32_t code_point) {
  return static_cast<std::size_t>(utf8proc_charwidth(static_cast<utf8proc_int32_t>(code_point)));
}

}  // namespace

bool take_code_point(std::string_view& text, char32_t* code_point) {
  utf8proc_int32_t value = 0;
  const auto length = utf8proc_iterate(bytes_of(text), static_cast<utf8proc_ssize_t>(text.size()), &value);
  const bool well_formed = length > 0;
  text.remove_prefix(well_formed ? static_cast<std::size_t>(length) : 1);
  if (well_formed) *code_point = static_cast<char32_t>(value);
  return well_formed;
}

void append_utf8(std::string& out, char32_t code_point) {
  utf8proc_uint8_t bytes[4];
  const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(code_point), bytes);
  out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

std::string utf8(const YString& text) {
  std::string out;
  for (const char c : std::string_view(text.data(), text.size()))
    append_utf8(out, static_cast<unsigned char>(c));
  return out;
}

std::string visible(std::string_view text, char kept) {
  std::string out;
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    char32_t code_point = byte;
    const bool well_formed = take_code_point(text, &code_point);
    if (well_formed && kept != '\0' && code_point == static_cast<unsigned char>(kept)) {
      out += kept;
    } else if (!well_formed || is_control(code_point)) {
      out += fmt::format("\\x{:02X}", static_cast<std::uint32_t>(code_point));
    } else if (steers_text(code_point)) {
      out += fmt::format("\\u{{{:X}}}", static_cast<std::uint32_t>(code_point));
    } else {
      append_utf8(out, code_point);
    }
  }
  return out;
}

std::size_t width(std::string_view text) {
  std::size_t cells = 0;
  char32_t code_point = 0;
  while (!text.empty()) {
    if (take_code_point(text, &code_point)) cells += cells_of(code_point);
  }
  return cells;
}

std::string cut(std::string_view text, std::size_t cells) {
  if (width(text) <= cells) return std::string(text);
  if (cells == 0) return {};
  std::string_view rest = text;
  char32_t code_point = 0;
  for (std::size_t used = 1; !rest.empty();) {  // the ellipsis takes one cell
    std::string_view after = rest;
    if (take_code_point(after, &code_point)) used += cells_of(code_point);
    if (used > cells) break;
    rest = after;
  }
  return std::string(text.substr(0, text.size() - rest.size())) + "…";
}

std::string folded(std::string_view text) {
  utf8proc_uint8_t* made = nullptr;
  const auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_COMPAT |
                                                      UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
  const auto length =
      utf8proc_map(bytes_of(text), static_cast<utf8proc_ssize_t>(text.size()), &made, options);
  if (length < 0) return std::string(text);
  std::string out(reinterpret_cast<const char*>(made), static_cast<std::size_t>(length));
  std::free(made);
  return out;
}

}  // namespace yusb::format
