#include "filter.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include <yusb_location.h>

#include "hex.h"
#include "utf8.h"

namespace yusb::format {

namespace {

constexpr std::string_view negation = "not:";

constexpr const char* rule =
    "apple, airpods, android, id=VVVV:PPPP, vendor=VVVV, location=0xNNNNNNNN, port=1-2.3, class=CC, "
    "interface=CC/SS/PP, mode=NAME, name=TEXT, serial=TEXT, or one of these with 'not:' before it";

filter by_record(device_filter condition) {
  return [condition = std::move(condition)](const known_device& device) { return condition(device.record); };
}

template <typename Condition>
filter by_details(Condition condition) {
  return [condition = std::move(condition)](const known_device& device) {
    return device.details && condition(*device.details);
  };
}

filter by_id(std::string_view value) {
  const auto id = parse_device_id(value);
  return id ? by_record(with_id(id->vendor, id->product)) : filter();
}

filter by_vendor(std::string_view value) {
  const auto vendor = parse_hex(value, 4);
  return vendor ? by_record(with_vendor(static_cast<unsigned short>(*vendor))) : filter();
}

filter by_location(std::string_view value) {
  const auto location = parse_hex(value, 8);
  return location ? by_record(with_location(YString::format("0x%X", *location))) : filter();
}

filter by_port(std::string_view value) {
  if (!is_port_path(value)) return {};
  return [path = std::string(value)](const known_device& device) { return port_path(device) == path; };
}

filter by_class(std::string_view value) {
  const auto wanted = parse_hex(value, 2);
  if (!wanted) return {};
  return by_details([wanted = static_cast<std::uint8_t>(*wanted)](const usb_details& details) {
    return has_class(details, wanted);
  });
}

filter by_interface(std::string_view value) {
  const std::vector<std::uint8_t> wanted = parse_class(value);
  if (wanted.empty()) return {};
  const auto number = [&](std::size_t i) {
    return i < wanted.size() ? std::optional<std::uint8_t>(wanted[i]) : std::nullopt;
  };
  return by_details(
      [class_code = wanted[0], subclass = number(1), protocol = number(2)](const usb_details& details) {
        return has_interface(details, class_code, subclass, protocol);
      });
}

filter by_mode(std::string_view value) {
  const auto mode = parse_device_mode(value);
  if (!mode) return {};
  return by_details(
      [mode = *mode](const usb_details& details) { return device_modes(details).contains(mode); });
}

// Unlike yusb::with_name, whatever the case of any letter, and of devices whose details are unknown too.
filter by_name(std::string_view value) {
  const std::string part = folded(value);
  if (part.empty()) return {};
  return [part](const known_device& device) {
    return folded(manufacturer(device)).find(part) != std::string::npos ||
           folded(product_name(device)).find(part) != std::string::npos;
  };
}

filter by_serial_number(std::string_view value) {
  return [text = std::string(value)](const known_device& device) {
    const std::string serial = serial_number(device);
    return serial == text || visible(serial) == text;
  };
}

struct key {
  std::string_view name;
  filter (*parse)(std::string_view value);
};

constexpr key keys[] = {{"id", by_id},     {"vendor", by_vendor}, {"location", by_location},
                        {"port", by_port}, {"class", by_class},   {"interface", by_interface},
                        {"mode", by_mode}, {"name", by_name},     {"serial", by_serial_number}};

bool starts_with(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

filter parse_condition(std::string_view text) {
  if (text == "apple") return by_record(device_is_apple);
  if (text == "airpods") return by_record(device_is_airpods);
  if (text == "android") return by_record(device_is_android);
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return {};
  for (const key& each : keys) {
    if (text.substr(0, equals) == each.name) return each.parse(text.substr(equals + 1));
  }
  return {};
}

filter parse_alternative(std::string_view text) {
  if (!starts_with(text, negation)) return parse_condition(text);
  filter negated = parse_condition(text.substr(negation.size()));
  if (!negated) return {};
  return [negated = std::move(negated)](const known_device& device) { return !negated(device); };
}

// Why an alternative cannot be parsed.
std::string reason(std::string_view text) {
  std::string_view condition = text;
  if (starts_with(condition, negation)) condition.remove_prefix(negation.size());
  if (starts_with(condition, "mode="))
    return "'" + visible(text) + "' has no such mode; the modes are " + mode_names();
  return "'" + visible(text) + "' is not one of " + rule;
}

// A serial number may contain commas.
bool extends_to_end(std::string_view alternative) {
  if (starts_with(alternative, negation)) alternative.remove_prefix(negation.size());
  return starts_with(alternative, "serial=");
}

}  // namespace

filter parse_filter(std::string_view text, std::string* error) {
  std::vector<filter> alternatives;
  while (true) {
    const std::size_t end = extends_to_end(text) ? std::string_view::npos : text.find(',');
    const std::string_view one = text.substr(0, end);
    alternatives.push_back(parse_alternative(one));
    if (!alternatives.back()) {
      *error = reason(one);
      return {};
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return [alternatives = std::move(alternatives)](const known_device& device) {
    return std::any_of(alternatives.begin(), alternatives.end(),
                       [&](const filter& each) { return each(device); });
  };
}

std::string mode_names() {
  std::string names;
  for (unsigned i = 0; i < device_mode_count; ++i)
    names += (i == 0 ? "" : ", ") + std::string(to_string(static_cast<device_mode>(i)));
  return names;
}

filter parse_selector(std::string_view text, std::string* error) {
  filter parsed = text.find(':') != std::string_view::npos ? by_id(text)
                  : starts_with(text, "0x")                ? by_location(text)
                                                           : by_port(text);
  if (!parsed) {
    *error = "'" + visible(text) + "' is not a port (1-2.3), a location (0x1230000) or an ID (VVVV:PPPP)";
  }
  return parsed;
}

filter all_of(filter first, filter second) {
  if (!first || !second) return first ? first : second;
  return [first = std::move(first), second = std::move(second)](const known_device& device) {
    return first(device) && second(device);
  };
}

}  // namespace yusb::format
