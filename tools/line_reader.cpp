#include "line_reader.h"

#include <optional>

#include "format/hex.h"
#include "format/utf8.h"

namespace yusb::tool {

using namespace format;

namespace {

// In UTF-16 units: a string descriptor has at most 255 bytes, of which two are its header.
constexpr std::size_t longest_string = 126;

bool is_blank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::string quoted(std::string_view text) { return "'" + visible(text) + "'"; }

bool line_reader::take_colon() {
  if (at_end() || _rest.front() != ':') return false;
  _rest.remove_prefix(1);
  return true;
}

std::string_view line_reader::key() {
  const std::size_t size = _rest.find_first_of("= \t");
  if (size == std::string_view::npos || _rest[size] != '=')
    throw fault{quoted(word()) + " is not FIELD=VALUE"};
  const std::string_view taken = _rest.substr(0, size);
  _rest.remove_prefix(size + 1);
  return taken;
}

std::string line_reader::text() {
  if (at_end() || _rest.front() != '"') throw fault{"a string must be in quotes: FIELD=\"TEXT\""};
  _rest.remove_prefix(1);
  std::string out;
  std::size_t units = 0;
  while (true) {
    if (_rest.empty()) throw fault{"the closing quote is missing"};
    if (_rest.front() == '"') break;
    const char32_t code_point = character();
    units += code_point > 0xFFFF ? 2 : 1;
    append_utf8(out, code_point);
  }
  if (units > longest_string)
    throw fault{"a string has at most 126 UTF-16 units, this one has " + std::to_string(units)};
  _rest.remove_prefix(1);
  if (!_rest.empty() && !is_blank(_rest.front())) throw fault{"a space is missing after the closing quote"};
  skip_blanks();
  return out;
}

std::string_view line_reader::word_before(const char* ends) {
  const std::string_view taken = _rest.substr(0, _rest.find_first_of(ends));
  _rest.remove_prefix(taken.size());
  skip_blanks();
  return taken;
}

// Skips to the next word. A comment ends the line.
void line_reader::skip_blanks() {
  while (!_rest.empty() && is_blank(_rest.front())) _rest.remove_prefix(1);
  if (!_rest.empty() && _rest.front() == '#') _rest = {};
}

char32_t line_reader::character() {
  char32_t code_point = 0;
  if (!take_code_point(_rest, &code_point)) throw fault{"the string is not UTF-8"};
  if (code_point != '\\') return code_point;
  const std::string_view escape = _rest.substr(0, _rest.substr(0, 1) == "x" ? 3 : 1);
  _rest.remove_prefix(escape.size());
  if (escape == "\"" || escape == "\\") return static_cast<unsigned char>(escape.front());
  const auto number = escape.size() == 3 ? parse_hex(escape.substr(1), 2) : std::nullopt;
  if (!number) throw fault{quoted("\\" + std::string(escape)) + " is not one of \\\", \\\\, \\xNN"};
  return *number;
}

}  // namespace yusb::tool
