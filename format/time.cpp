#include "time.h"

#include <ctime>

#include <fmt/chrono.h>

namespace yusb::format {

namespace {

// A time as whole seconds and the milliseconds after them. Rounded down, also before 1970, so that the
// milliseconds are never negative.
struct split_time {
  explicit split_time(time_point when) {
    const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(when).time_since_epoch();
    const auto whole = std::chrono::floor<std::chrono::seconds>(since_epoch);
    seconds = static_cast<std::time_t>(whole.count());
    milliseconds = static_cast<unsigned>((since_epoch - whole).count());
  }

  std::time_t seconds;
  unsigned milliseconds;
};

}  // namespace

std::string local_time(time_point when) {
  const split_time split(when);
  std::tm fields{};
  localtime_r(&split.seconds, &fields);  // fmt::localtime is deprecated in later versions of {fmt}
  return fmt::format("{:%H:%M:%S}.{:03}", fields, split.milliseconds);
}

std::string utc_time(time_point when) {
  const split_time split(when);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(split.seconds), split.milliseconds);
}

}  // namespace yusb::format
