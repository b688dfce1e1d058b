#include "bus/location.h"

#include <charconv>

namespace yusb::port {

namespace {

// Takes a number off the front.
std::optional<std::uint32_t> take_number(std::string_view& rest) {
  std::uint32_t number = 0;
  if (rest.empty() || rest.front() == '0') return std::nullopt;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc()) return std::nullopt;
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  return number;
}

bool take(std::string_view& rest, std::string_view expected) {
  if (rest.substr(0, expected.size()) != expected) return false;
  rest.remove_prefix(expected.size());
  return true;
}

// The numbers of a path one after the other: the bus, then the ports.
class path_numbers {
 public:
  explicit path_numbers(std::string_view path) : _rest(path) { take(_rest, "usb"); }

  std::optional<std::uint32_t> next() {
    const auto number = take_number(_rest);
    if (!_rest.empty()) _rest.remove_prefix(1);  // '-' or '.'
    return number;
  }

 private:
  std::string_view _rest;
};

// FNV-1a, folded to 20 bits.
std::uint32_t hash_of(std::string_view path) {
  std::uint32_t hash = 2166136261u;
  for (const char c : path) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return (hash >> 20 ^ hash) & 0xFFFFF;
}

}  // namespace

bool is_device_path(std::string_view path) {
  if (take(path, "usb")) return take_number(path).has_value() && path.empty();
  if (!take_number(path).has_value() || !take(path, "-")) return false;
  do {
    if (!take_number(path).has_value()) return false;
  } while (take(path, "."));
  return path.empty();
}

bool path_before(std::string_view a, std::string_view b) {
  path_numbers left(a);
  path_numbers right(b);
  for (;;) {
    const auto l = left.next();
    const auto r = right.next();
    if (!l.has_value() || l != r) return l < r;  // none comes before any number
  }
}

std::uint32_t bus_of(std::string_view path) { return path_numbers(path).next().value_or(0); }

bool is_within(std::string_view path, std::string_view hub) {
  path_numbers inner(path);
  path_numbers outer(hub);
  while (const auto number = outer.next()) {
    if (inner.next() != number) return false;
  }
  return true;
}

std::optional<std::uint32_t> location_of(std::string_view path) {
  if (!is_device_path(path)) return std::nullopt;
  path_numbers numbers(path);
  const std::uint32_t bus = *numbers.next();
  bool fits = bus <= 255;
  const std::uint32_t top = fits ? bus << 24 : 0;
  std::uint32_t ports = 0;
  int shift = 20;
  while (const auto port = numbers.next()) {
    fits = fits && *port <= 15 && shift >= 0;
    if (fits) ports |= *port << shift;
    shift -= 4;
  }
  if (fits) return top | ports;
  const std::uint32_t hash = hash_of(path);
  return top | (hash == 0 ? 1 : hash);
}

std::uint32_t next_location(std::uint32_t taken) {
  const std::uint32_t next = (taken + 1) & 0xFFFFF;
  return (taken & 0xFF000000) | (next == 0 ? 1 : next);
}

}  // namespace yusb::port
