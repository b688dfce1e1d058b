// Which devices the user wants to hear of.
#ifndef YUSB_TOOLS_FILTER_H_
#define YUSB_TOOLS_FILTER_H_

#include <string>
#include <string_view>

#include <yusb_filter.h>

namespace yusb::tool {

// Parses one filter: alternatives with commas between, each of them
//
//   apple | airpods | android         what the device is
//   id=VVVV:PPPP | vendor=VVVV        its numbers, hexadecimal
//   location=0xNNNNNNNN               where it is, hexadecimal
//   serial=TEXT                       exactly this serial number, UTF-8; takes in all that follows, commas
//   too
//
// A device passes if one alternative holds. Empty, with *error saying why, if `text` is none of this.
device_filter parse_filter(std::string_view text, std::string* error);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_FILTER_H_
