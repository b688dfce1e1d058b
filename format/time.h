#ifndef YUSB_FORMAT_TIME_H_
#define YUSB_FORMAT_TIME_H_

#include <chrono>
#include <string>

namespace yusb::format {

using time_point = std::chrono::system_clock::time_point;

// "14:03:07.250", the local time.
std::string local_time(time_point when);

// "2026-11-23T13:03:07.250Z": UTC, RFC 3339.
std::string utc_time(time_point when);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_TIME_H_
