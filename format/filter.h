// The syntax in which the user selects devices.
#ifndef YUSB_FORMAT_FILTER_H_
#define YUSB_FORMAT_FILTER_H_

#include <string>
#include <string_view>

#include <yusb_filter.h>

namespace yusb::format {

// Parses a filter: alternatives separated by commas. A device passes if it matches one of them. Each is one
// of
//
//   apple | airpods | android         the tag of the device
//   id=VVVV:PPPP | vendor=VVVV        its IDs, hexadecimal
//   location=0xNNNNNNNN               its location ID, hexadecimal
//   serial=TEXT                       exactly this serial number, UTF-8. TEXT extends to the end of the
//                                     filter, commas included.
//
// On a syntax error, returns an empty filter and stores the reason in *error.
device_filter parse_filter(std::string_view text, std::string* error);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_FILTER_H_
