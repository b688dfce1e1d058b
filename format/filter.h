// The syntax in which the user selects devices.
#ifndef YUSB_FORMAT_FILTER_H_
#define YUSB_FORMAT_FILTER_H_

#include <functional>
#include <string>
#include <string_view>

#include "format/known_device.h"

namespace yusb::format {

// True keeps the device. An empty filter keeps every device.
using filter = std::function<bool(const known_device&)>;

// Parses a filter: alternatives separated by commas. A device passes if it matches one of them. Each is one
// of
//
//   apple | airpods | android         the tag of the device
//   id=VVVV:PPPP | vendor=VVVV        its IDs, hexadecimal
//   location=0xNNNNNNNN               its location ID, hexadecimal
//   port=PATH                         its port path: usb1, 1-2, 1-2.3
//   class=CC                          the class of the device or of one of its interfaces, hexadecimal
//   interface=CC[/SS[/PP]]            class, subclass and protocol of one of its interfaces, hexadecimal
//   mode=NAME                         what it offers, by the names of yusb_details.h
//   name=TEXT                         a part of its manufacturer or product string, whatever the case
//   serial=TEXT                       its whole serial number, as it is or as the programs show it. TEXT
//                                     extends to the end of the filter, commas included.
//
// "not:" before an alternative negates it. On a syntax error, returns an empty filter and stores the reason
// in *error.
filter parse_filter(std::string_view text, std::string* error);

// The names for mode=, separated by ", ".
std::string mode_names();

// Parses what names one device: a port path, a location ID with its 0x, or VVVV:PPPP. On a syntax error,
// returns an empty filter and stores the reason in *error.
filter parse_selector(std::string_view text, std::string* error);

// The filter that keeps what both keep; either may be empty.
filter all_of(filter first, filter second);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_FILTER_H_
