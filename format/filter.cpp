#include "filter.h"

#include <utility>

#include "hex.h"
#include "utf8.h"

namespace yusb::format {

namespace {

device_filter parse_alternative(std::string_view text) {
  if (text == "apple") return device_is_apple;
  if (text == "airpods") return device_is_airpods;
  if (text == "android") return device_is_android;
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return {};
  const std::string_view key = text.substr(0, equals);
  const std::string_view value = text.substr(equals + 1);
  if (key == "id") {
    if (const auto id = parse_device_id(value)) return with_id(id->vendor, id->product);
  } else if (key == "vendor") {
    if (const auto vendor = parse_hex(value, 4)) return with_vendor(static_cast<unsigned short>(*vendor));
  } else if (key == "location") {
    if (const auto location = parse_hex(value, 8)) return with_location(YString::format("0x%X", *location));
  } else if (key == "serial") {
    if (auto serial = record_text(value)) return with_serial_number(*serial);
  }
  return {};
}

}  // namespace

device_filter parse_filter(std::string_view text, std::string* error) {
  device_filter any;
  while (true) {
    const std::size_t end = text.substr(0, 7) == "serial=" ? std::string_view::npos : text.find(',');
    const std::string_view one = text.substr(0, end);
    device_filter parsed = parse_alternative(one);
    if (!parsed) {
      *error = "'" + visible(one) +
               "' is not one of apple, airpods, android, id=VVVV:PPPP, vendor=VVVV, location=0xNNNNNNNN, "
               "serial=TEXT";
      return {};
    }
    any = any ? either(std::move(any), std::move(parsed)) : std::move(parsed);
    if (end == std::string_view::npos) return any;
    text.remove_prefix(end + 1);
  }
}

}  // namespace yusb::format
