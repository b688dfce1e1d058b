// Time limits as the user writes them.
#ifndef YUSB_FORMAT_DURATION_H_
#define YUSB_FORMAT_DURATION_H_

#include <chrono>
#include <optional>
#include <string_view>

namespace yusb::format {

// The syntax of a duration, for error messages.
constexpr const char* duration_rule =
    "a whole number of ms, s or m, such as 250ms, 10s or 5m, and at most 365 days";

// Empty if `text` does not follow duration_rule.
std::optional<std::chrono::milliseconds> parse_duration(std::string_view text);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_DURATION_H_
