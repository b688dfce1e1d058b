#ifndef YUSB_TOOLS_COUNTDOWN_H_
#define YUSB_TOOLS_COUNTDOWN_H_

#include <chrono>
#include <optional>

namespace yusb::tool {

// The time left of a limit; without one, or with one of a year or more, it never ends.
class countdown {
 public:
  explicit countdown(std::optional<std::chrono::milliseconds> limit)
      : _end(limit && *limit < longest ? std::chrono::steady_clock::now() + *limit
                                       : std::chrono::steady_clock::time_point::max()) {}

  std::chrono::milliseconds left() const {
    const auto now = std::chrono::steady_clock::now();
    return now >= _end ? std::chrono::milliseconds(0)
                       : std::chrono::ceil<std::chrono::milliseconds>(_end - now);
  }

  bool over() const { return left() == std::chrono::milliseconds(0); }

 private:
  static constexpr std::chrono::hours longest{24 * 365};  // longer ones overflow

  std::chrono::steady_clock::time_point _end;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_COUNTDOWN_H_
