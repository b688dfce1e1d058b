// UTF-8, and strings of unknown origin made safe for a terminal.
#ifndef YUSB_FORMAT_UTF8_H_
#define YUSB_FORMAT_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

#include <YorvanCore/YString.h>

namespace yusb::format {

// Removes the first code point from `text`, which must not be empty, and stores it. If `text` does not begin
// with well-formed UTF-8, removes one byte and returns false.
bool take_code_point(std::string_view& text, char32_t* code_point);

void append_utf8(std::string& out, char32_t code_point);

// A string of a record as UTF-8: each of its bytes is the Latin-1 character with that number.
std::string utf8(const YString& text);

// `text` with \xNN for each byte that is not UTF-8 and for each control character (C0, DEL and C1), and with
// \u{NNNN} for characters that end a line or change the direction of text: all of these could steer a
// terminal. The character `kept` stays.
std::string visible(std::string_view text, char kept = '\0');

// The number of terminal cells that a result of visible() occupies: 2 for a wide character, 0 for one that
// combines with the character before it or has no width.
std::size_t width(std::string_view text);

// `text`, or as much of it as fits into `cells` cells with an ellipsis at its end.
std::string cut(std::string_view text, std::size_t cells);

// `text` in a form that is equal for strings that differ only in case, or in how their characters are
// composed. Text that is not UTF-8 is returned as it is.
std::string folded(std::string_view text);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_UTF8_H_
