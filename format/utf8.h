// UTF-8, and strings of unknown origin made safe for a terminal.
#ifndef YUSB_FORMAT_UTF8_H_
#define YUSB_FORMAT_UTF8_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <YorvanCore/YString.h>
#include <yusb_details/utf8.h>

namespace yusb::format {

using detail::append_utf8;
using detail::take_code_point;

// A string of a record as UTF-8: each of its bytes is the Latin-1 character with that number.
std::string utf8(const YString& text);

// The string that the record of a device holds if the device sends `text`: the low byte of each UTF-16 unit.
// Empty if `text` is not UTF-8.
std::optional<YString> record_text(std::string_view text);

// `text` with \xNN for each byte that is not UTF-8 and for each control character (C0, DEL and C1), which
// could steer a terminal. The character `kept` stays.
std::string visible(std::string_view text, char kept = '\0');

// The number of terminal columns that a result of utf8() or visible() occupies.
std::size_t width(std::string_view text);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_UTF8_H_
