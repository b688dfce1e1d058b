#ifndef YUSB_TOOLS_DURATION_H_
#define YUSB_TOOLS_DURATION_H_

#include <chrono>
#include <optional>
#include <string_view>

namespace yusb::tool {

constexpr const char* duration_rule = "a whole number of ms, s or m, at most 365 days: 250ms, 10s, 5m";

// Empty if `text` does not keep duration_rule.
std::optional<std::chrono::milliseconds> parse_duration(std::string_view text);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_DURATION_H_
