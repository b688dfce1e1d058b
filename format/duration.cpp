#include "duration.h"

#include <charconv>
#include <cstdint>

namespace yusb::format {

std::optional<std::chrono::milliseconds> parse_duration(std::string_view text) {
  constexpr std::int64_t longest = 365LL * 24 * 60 * 60 * 1000;
  std::uint32_t amount = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, amount);
  if (error != std::errc()) return std::nullopt;
  const std::string_view unit(rest, static_cast<std::size_t>(end - rest));
  const std::int64_t scale = unit == "ms" ? 1 : unit == "s" ? 1000 : unit == "m" ? 60 * 1000 : 0;
  if (scale == 0 || amount * scale > longest) return std::nullopt;
  return std::chrono::milliseconds(amount * scale);
}

}  // namespace yusb::format
