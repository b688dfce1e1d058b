#include "linux/uevent.h"

#include <charconv>

#include <yusb_location.h>

namespace yusb::port {

namespace {

bool value_of(std::string_view field, std::string_view key, std::string_view* value) {
  if (field.substr(0, key.size()) != key) return false;
  *value = field.substr(key.size());
  return true;
}

// "5ac/1393/100": hexadecimal, without leading zeros.
device_numbers parse_product(std::string_view text) {
  std::uint16_t numbers[3];
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::uint16_t& number : numbers) {
    if (&number != numbers && (at == end || *at++ != '/')) return {};
    const auto [after, error] = std::from_chars(at, end, number, 16);
    if (error != std::errc()) return {};
    at = after;
  }
  if (at != end) return {};
  return {numbers[0], numbers[1], numbers[2]};
}

}  // namespace

std::optional<uevent> parse_uevent(std::string_view datagram) {
  std::string_view action;
  std::string_view devpath;
  std::string_view subsystem;
  std::string_view devtype;
  std::string_view devnum;
  std::string_view product;
  for (std::size_t zero = datagram.find('\0'); zero != std::string_view::npos;) {
    datagram.remove_prefix(zero + 1);
    zero = datagram.find('\0');
    const std::string_view field = datagram.substr(0, zero);
    value_of(field, "ACTION=", &action) || value_of(field, "DEVPATH=", &devpath) ||
        value_of(field, "SUBSYSTEM=", &subsystem) || value_of(field, "DEVTYPE=", &devtype) ||
        value_of(field, "DEVNUM=", &devnum) || value_of(field, "PRODUCT=", &product);
  }
  const bool added = action == "add";
  if (subsystem != "usb" || devtype != "usb_device" || (!added && action != "remove")) return std::nullopt;

  const std::string_view path = devpath.substr(devpath.rfind('/') + 1);
  std::uint32_t number = 0;
  const char* const end = devnum.data() + devnum.size();
  const auto [after, error] = std::from_chars(devnum.data(), end, number);
  if (!is_port_path(path) || error != std::errc() || after != end || number == 0) return std::nullopt;
  return uevent{added, std::string(path), number, parse_product(product)};
}

}  // namespace yusb::port
