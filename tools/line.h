// One event on one line, for people and for programs.
#ifndef YUSB_TOOLS_LINE_H_
#define YUSB_TOOLS_LINE_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <yusb.h>

namespace yusb::tool {

using time_point = std::chrono::system_clock::time_point;

struct event {
  time_point when;
  bool arrived;  // else it left
  YUsbInfoDevice device;
};

// Lines with aligned columns:
//
//   time  +/-  location  vendor:product  release  manufacturer  product  serial number  what it is
//
// A missing text shows as "-". Columns widen as needed, but one very long text shifts its own line only.
class columns {
 public:
  explicit columns(bool coloured) : _coloured(coloured) {}

  // Makes room for a line, before any line is made: then the first one is as wide as the last.
  void fit(const event& event, const std::string& branch = "");

  // With a line end. The time is local; `branch`, a tree's lines, stands before the location.
  std::string line(const event& event, const std::string& branch = "");

 private:
  static constexpr std::size_t _count = 6;  // those that are aligned: location to serial number
  using cells = std::array<std::string, _count>;

  static cells cells_of(const event& event, const std::string& branch);

  const bool _coloured;
  std::array<std::size_t, _count> _widths{10, 9, 5, 12, 20, 16};
};

// One JSON object and a line end, ASCII only. Schema 1 has these fields, always all of them:
//
//   schema         1; a later number means that a field changed its meaning or went, not that one was added
//   time           UTC, RFC 3339 with milliseconds
//   event          "arrival" or "removal"
//   location       the location ID, "0x1230000"
//   vendor_id, product_id
//                  four lower-case hexadecimal digits
//   release        bcdDevice as "major.minor", as in a line
//   manufacturer, product, serial_number
//                  the device's texts, "" where it has none
//   apple, airpods, android
//                  true or false
std::string json_line(const event& event);

// "2.10" for 0x0210.
std::string release_text(unsigned short release);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_LINE_H_
