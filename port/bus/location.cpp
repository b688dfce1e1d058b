#include <yusb_location.h>
#include <algorithm>

namespace yusb {

namespace {

constexpr std::size_t most_digits = 9;  // so that a number fits in 32 bits

std::size_t count_digits(std::string_view text) {
  std::size_t digits = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  return digits;
}

// Removes and returns the number at the front; 0 if there is none.
std::uint32_t take_number(std::string_view& rest) {
  const std::size_t digits = count_digits(rest);
  if (digits == 0 || digits > most_digits || rest.front() == '0') return 0;
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < digits; ++i) number = number * 10 + static_cast<std::uint32_t>(rest[i] - '0');
  rest.remove_prefix(digits);
  return number;
}

bool take(std::string_view& rest, char expected) {
  if (rest.empty() || rest.front() != expected) return false;
  rest.remove_prefix(1);
  return true;
}

// "1" for "usb1", "1-2.3" for itself: the paths behind a hub start with the hub's prefix.
std::string_view numbers_of(std::string_view path) { return path.front() == 'u' ? path.substr(3) : path; }

// FNV-1a, folded to 20 bits.
std::uint32_t hash_of(std::string_view path) {
  std::uint32_t hash = 2166136261u;
  for (const char c : path) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return (hash >> 20 ^ hash) & 0xFFFFF;
}

}  // namespace

bool is_port_path(std::string_view path) noexcept {
  if (path.substr(0, 3) == "usb") {
    path.remove_prefix(3);
    return take_number(path) != 0 && path.empty();
  }
  if (take_number(path) == 0 || !take(path, '-')) return false;
  do {
    if (take_number(path) == 0) return false;
  } while (take(path, '.'));
  return path.empty();
}

bool port_path_before(std::string_view a, std::string_view b) noexcept {
  a = numbers_of(a);
  b = numbers_of(b);
  const auto [left, right] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  a.remove_prefix(static_cast<std::size_t>(left - a.begin()));
  b.remove_prefix(static_cast<std::size_t>(right - b.begin()));
  // If one number is the start of the other, the one with fewer digits is smaller.
  const std::size_t left_digits = count_digits(a);
  const std::size_t right_digits = count_digits(b);
  return left_digits == right_digits ? a < b : left_digits < right_digits;
}

bool port_path_within(std::string_view path, std::string_view hub) noexcept {
  path = numbers_of(path);
  hub = numbers_of(hub);
  return path.substr(0, hub.size()) == hub && count_digits(path.substr(hub.size())) == 0;
}

std::uint32_t bus_of_path(std::string_view path) noexcept {
  path = numbers_of(path);
  return take_number(path);
}

std::optional<std::uint32_t> location_of_path(std::string_view path) noexcept {
  if (!is_port_path(path)) return std::nullopt;
  std::string_view rest = numbers_of(path);
  const std::uint32_t bus = take_number(rest);
  bool fits = bus <= 255;
  const std::uint32_t top = fits ? bus << 24 : 0;
  std::uint32_t ports = 0;
  for (int shift = 20; !rest.empty(); shift -= 4) {
    rest.remove_prefix(1);  // '-' or '.'
    const std::uint32_t port = take_number(rest);
    fits = fits && port <= 15 && shift >= 0;
    if (fits) ports |= port << shift;
  }
  if (fits) return top | ports;
  const std::uint32_t hash = hash_of(path);
  return top | (hash == 0 ? 1 : hash);
}

std::string path_of_location(std::uint32_t location) {
  const std::uint32_t bus = location >> 24;
  if (bus == 0) return {};
  std::string path = std::to_string(bus);
  if ((location & 0x00FFFFFF) == 0) return "usb" + path;
  std::uint32_t ports = location << 8;
  for (char separator = '-'; ports >> 28 != 0; ports <<= 4, separator = '.')
    path += separator + std::to_string(ports >> 28);
  return ports == 0 ? path : std::string();
}

bool location_may_collide(std::uint32_t location) noexcept {
  return (location & 0x00F00000) == 0 && (location & 0x000FFFFF) != 0;
}

std::uint32_t next_location(std::uint32_t taken) noexcept {
  const std::uint32_t next = (taken + 1) & 0xFFFFF;
  return (taken & 0xFF000000) | (next == 0 ? 1 : next);
}

}  // namespace yusb
