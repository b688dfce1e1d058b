// The names of topics.
#ifndef YUSB_FLEET_TOPIC_H_
#define YUSB_FLEET_TOPIC_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace yusb::fleet {

// FNV-1a, 64 bits.
std::uint64_t hash(std::string_view text);

// 16 hexadecimal digits.
std::string hex(std::uint64_t value);

// Returns `name` as one level of a topic: every byte that is not an ASCII letter, digit, ".", "_" or "-" is
// percent-encoded. A result of more than 128 bytes is cut to 100, followed by "~" and hex(hash(name)).
// Different names have different levels, unless their hashes are equal.
std::string level(std::string_view name);

// The name that level() was made from, as far as the level still holds it.
std::string name_of(std::string_view level);

// PREFIX/HOST/WHAT or PREFIX/HOST/device/NAME.
struct topic {
  std::string host;    // as a level
  std::string what;    // "status", "inventory", "device", "event", "sync"
  std::string device;  // as a level; of "device" alone
};

// Empty if `text` is not one of these topics, or if level() does not return such a HOST.
std::optional<topic> parse_topic(std::string_view prefix, std::string_view text);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_TOPIC_H_
