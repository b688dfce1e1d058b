// One event as one line: aligned columns for people, JSON for programs.
#ifndef YUSB_FORMAT_EVENT_FORMAT_H_
#define YUSB_FORMAT_EVENT_FORMAT_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include <yusb.h>

namespace yusb::format {

using time_point = std::chrono::system_clock::time_point;

struct event {
  time_point when;
  bool arrived;  // false: removed
  YUsbInfoDevice device;
};

// Lines with aligned columns:
//
//   time  +/-  location  vendor:product  release  manufacturer  product  serial number  tags
//
// An empty string is shown as "-". Columns widen as needed, but a string of more than 40 characters shifts
// only its own line.
class columns {
 public:
  explicit columns(bool coloured) : _coloured(coloured) {}

  // Widens the columns for a line without making it. Call it for every line before the first line(), so that
  // all lines align.
  void fit(const event& event, const std::string& branch = "");

  // The line, with its line end. The time is local. `branch`, the lines of a tree, precedes the location.
  std::string line(const event& event, const std::string& branch = "");

 private:
  static constexpr std::size_t _count = 6;  // of the aligned columns: location to serial number
  using cells = std::array<std::string, _count>;

  static cells cells_of(const event& event, const std::string& branch);

  const bool _coloured;
  std::array<std::size_t, _count> _widths{10, 9, 5, 12, 20, 16};
};

// One JSON object and a line end, ASCII only. Schema 1 always has all of these fields:
//
//   schema         1; it grows when a field is removed or changes its meaning, not when one is added
//   time           UTC, RFC 3339 with milliseconds
//   event          "arrival" or "removal"
//   location       the location ID, "0x1230000"
//   vendor_id, product_id
//                  four lower-case hexadecimal digits
//   release        bcdDevice as "major.minor", as in the columns
//   manufacturer, product, serial_number
//                  the device's strings, "" for one that it lacks
//   apple, airpods, android
//                  true or false
std::string json_line(const event& event);

// "2.10" for 0x0210.
std::string release_text(unsigned short release);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_EVENT_FORMAT_H_
