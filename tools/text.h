// Texts of unknown origin, made fit for a terminal.
#ifndef YUSB_TOOLS_TEXT_H_
#define YUSB_TOOLS_TEXT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <YorvanCore/YString.h>

namespace yusb::tool {

// Takes one code point off the front of `text`, which must not be empty, and stores it. False, and one byte
// less, if `text` does not begin with well-formed UTF-8.
bool take_code_point(std::string_view& text, char32_t* code_point);

void append_utf8(std::string& out, char32_t code_point);

// A record's text as UTF-8: each byte is the character of that number.
std::string utf8(const YString& text);

// The record's text of a device that sent `text`: the low byte of each UTF-16 unit. Empty if `text` is not
// UTF-8.
std::optional<YString> record_text(std::string_view text);

// `text` with whatever could steer a terminal (C0, DEL and C1 control characters) and whatever is not UTF-8
// as \xNN, but for the character `kept`.
std::string visible(std::string_view text, char kept = '\0');

// How many columns of a terminal a text of utf8() and visible() takes up.
std::size_t width(std::string_view text);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_TEXT_H_
