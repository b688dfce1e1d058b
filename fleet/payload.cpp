#include "payload.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "format/hex.h"
#include "format/json.h"
#include "format/utf8.h"
#include "topic.h"

namespace yusb::fleet {

namespace {

using json = nlohmann::ordered_json;

// Limits, because any client may publish a payload: the JSON library takes time in proportion to the square
// of an object's fields, and stack in proportion to the depth. The largest payload of an agent has 30 kB and
// depth 3: a device with 32 interfaces, the most that Linux allows, and the longest names.
constexpr std::size_t longest_payload = 64 * 1024;
constexpr int deepest = 8;

// The result is discarded (not an object) if `text` is too large or not JSON. Values that are too deep are
// left out.
json parse(std::string_view text) {
  if (text.size() > longest_payload) return json(json::value_t::discarded);
  const auto shallow = [](int depth, json::parse_event_t, const json&) { return depth <= deepest; };
  return json::parse(text, shallow, false);
}

// Returns a field of an object from any client, or the fallback if it is missing or has another type or
// range.
template <typename Value>
Value field(const json& object, const char* name, Value fallback) {
  const auto found = object.find(name);
  if (found == object.end()) return fallback;
  if constexpr (std::is_same_v<Value, std::string>) {
    return found->is_string() ? found->template get<std::string>() : fallback;
  } else if constexpr (std::is_same_v<Value, bool>) {
    return found->is_boolean() ? found->template get<bool>() : fallback;
  } else if constexpr (std::is_floating_point_v<Value>) {
    return found->is_number() ? found->template get<Value>() : fallback;
  } else {  // an integer, and none is negative
    const bool fits = found->is_number_unsigned() &&
                      found->template get<std::uint64_t>() <= std::numeric_limits<Value>::max();
    return fits ? found->template get<Value>() : fallback;
  }
}

std::optional<json> ours(std::string_view payload) {
  json object = parse(payload);
  if (!object.is_object() || field(object, "schema", 0) != 1) return std::nullopt;
  return object;
}

std::optional<std::uint32_t> hex_field(const json& object, const char* name, std::size_t digits) {
  return format::parse_hex(field(object, name, std::string()), digits);
}

format::time_point parse_time(const std::string& text) {
  std::tm fields{};
  int milliseconds = 0;
  const int read =
      std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &fields.tm_year, &fields.tm_mon,
                  &fields.tm_mday, &fields.tm_hour, &fields.tm_min, &fields.tm_sec, &milliseconds);
  // The clock's 64 bits of nanoseconds end in 2262.
  if (read != 7 || fields.tm_year < 1970 || fields.tm_year > 2200) return {};
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  return format::time_point() + std::chrono::seconds(timegm(&fields)) +
         std::chrono::milliseconds(milliseconds);
}

json head(format::time_point when) {
  json object;
  object["schema"] = 1;
  object["time"] = format::utc_time(when);
  return object;
}

std::string text_of(const json& object) {
  constexpr bool ascii = true;
  return object.dump(-1, ' ', ascii, json::error_handler_t::replace);
}

// A record holds the low byte of each UTF-16 unit.
YString record_string(const std::string& text) {
  std::string bytes;
  std::string_view rest = text;
  while (!rest.empty()) {
    char32_t code_point = 0;
    if (format::take_code_point(rest, &code_point)) bytes += static_cast<char>(code_point & 0xFFU);
  }
  return YString(bytes.data(), bytes.size());
}

std::uint16_t version(const std::string& text) {
  unsigned major = 0;
  unsigned minor = 0;
  std::sscanf(text.c_str(), "%2x.%2x", &major, &minor);
  return static_cast<std::uint16_t>(major << 8U | minor);
}

usb_details details_of(const json& object) {
  usb_details made;
  made.port_path = field(object, "port", std::string());
  made.bus = field(object, "bus", 0U);
  made.address = field(object, "address", 0U);
  made.device_node = field(object, "device_node", std::string());
  made.usb_version = version(field(object, "usb_version", std::string()));
  made.class_code = static_cast<std::uint8_t>(hex_field(object, "class", 2).value_or(0));
  made.subclass = static_cast<std::uint8_t>(hex_field(object, "subclass", 2).value_or(0));
  made.protocol = static_cast<std::uint8_t>(hex_field(object, "protocol", 2).value_or(0));
  made.speed = field(object, "speed", 0.0);
  made.manufacturer = field(object, "manufacturer", std::string());
  made.product_name = field(object, "product", std::string());
  made.serial_number = field(object, "serial_number", std::string());
  const auto list = object.find("interfaces");
  if (list == object.end() || !list->is_array()) return made;
  for (const json& each : *list) {
    if (!each.is_object()) continue;
    usb_interface one;
    one.number = field<std::uint8_t>(each, "number", 0);
    one.class_code = static_cast<std::uint8_t>(hex_field(each, "class", 2).value_or(0));
    one.subclass = static_cast<std::uint8_t>(hex_field(each, "subclass", 2).value_or(0));
    one.protocol = static_cast<std::uint8_t>(hex_field(each, "protocol", 2).value_or(0));
    one.name = field(each, "name", std::string());
    one.driver = field(each, "driver", std::string());
    made.interfaces.push_back(std::move(one));
  }
  return made;
}

}  // namespace

namespace {
const char* const words[] = {"offline", "restoring", "online"};  // of presence
}

std::string to_payload(const status& made) {
  json object = head(made.when);
  object["state"] = words[static_cast<int>(made.state)];
  object["host"] = made.host;
  object["start"] = made.start;
  object["machine"] = made.machine;
  object["version"] = made.version;
  object["heartbeat"] = made.heartbeat;
  return text_of(object);
}

std::optional<status> parse_status(std::string_view payload) {
  const auto object = ours(payload);
  if (!object) return std::nullopt;
  const auto word = std::find(std::begin(words), std::end(words), field(*object, "state", std::string()));
  if (word == std::end(words)) return std::nullopt;
  status made{parse_time(field(*object, "time", std::string())),
              static_cast<presence>(word - std::begin(words)),
              field(*object, "host", std::string()),
              field(*object, "start", std::string()),
              field(*object, "machine", std::string()),
              field(*object, "version", std::string()),
              field(*object, "heartbeat", 0)};
  return made.host.empty() || made.start.empty() ? std::nullopt : std::make_optional(std::move(made));
}

std::string to_payload(const inventory& made) {
  json object = head(made.when);
  object["devices"] = made.devices;
  object["digest"] = hex(made.digest);
  object["arrivals"] = made.arrivals;
  object["removals"] = made.removals;
  return text_of(object);
}

std::optional<inventory> parse_inventory(std::string_view payload) {
  const auto object = ours(payload);
  const std::string digits = object ? field(*object, "digest", std::string()) : std::string();
  if (digits.size() != 16 || digits.find_first_not_of("0123456789abcdef") != std::string::npos)
    return std::nullopt;
  return inventory{parse_time(field(*object, "time", std::string())),
                   field<std::size_t>(*object, "devices", 0), std::strtoull(digits.c_str(), nullptr, 16),
                   field<std::uint64_t>(*object, "arrivals", 0),
                   field<std::uint64_t>(*object, "removals", 0)};
}

std::string to_payload(const claim& made) {
  json object;
  object["schema"] = 1;
  object["start"] = made.start;
  object["machine"] = made.machine;
  object["established"] = made.established;
  return text_of(object);
}

std::optional<claim> parse_claim(std::string_view payload) {
  const auto object = ours(payload);
  if (!object) return std::nullopt;
  claim made{field(*object, "start", std::string()), field(*object, "machine", std::string()),
             field(*object, "established", false)};
  return made.start.empty() ? std::nullopt : std::make_optional(std::move(made));
}

std::string device_payload(const format::event& event, bool openable) {
  return text_of(parse(format::json_line(event, openable)));
}

std::uint64_t digest(std::string_view name, std::string_view payload) {
  json object = parse(payload);
  if (!object.is_object()) return 0;
  object.erase("time");
  return hash(std::string(name) + "\n" + text_of(object));
}

std::optional<format::known_device> parse_device(std::string_view payload) {
  const auto object = ours(payload);
  if (!object) return std::nullopt;
  const auto vendor = hex_field(*object, "vendor_id", 4);
  const auto product = hex_field(*object, "product_id", 4);
  const std::string location = field(*object, "location", std::string());
  if (!vendor || !product || location.empty()) return std::nullopt;
  format::known_device made;
  made.record.setVendorID(static_cast<unsigned short>(*vendor));
  made.record.setProductID(static_cast<unsigned short>(*product));
  made.record.setRevisedID(version(field(*object, "release", std::string())));
  made.record.setLocation(record_string(location));
  made.details = details_of(*object);
  made.details->vendor = made.record.vendorID();
  made.details->product = made.record.productID();
  made.details->release = made.record.revisedID();
  made.record.setFactory(record_string(made.details->manufacturer));
  made.record.setDescribe(record_string(made.details->product_name));
  made.record.setSerialNumber(record_string(made.details->serial_number));
  return made;
}

bool same_attachment(const format::known_device& a, const format::known_device& b) {
  return a.record.vendorID() == b.record.vendorID() && a.record.productID() == b.record.productID() &&
         a.details->serial_number == b.details->serial_number && a.details->address == b.details->address;
}

std::string event_payload(std::string_view device, bool arrived, const std::string& start,
                          std::uint64_t sequence) {
  json object = parse(device);
  object["time"] = format::utc_time(std::chrono::system_clock::now());
  object["event"] = arrived ? "arrival" : "removal";
  object["start"] = start;
  object["sequence"] = sequence;
  return text_of(object);
}

std::string reader_line(std::string_view device, const char* event, bool initial, const std::string& host,
                        const char* host_state, std::optional<format::time_point> when) {
  json object = parse(device);
  if (when) object["time"] = format::utc_time(*when);
  object["event"] = event;
  object["initial"] = initial;
  object["host"] = host;
  object["host_state"] = host_state;
  return text_of(object) + "\n";
}

std::string host_line(const std::string& host, const char* host_state,
                      std::optional<format::time_point> since) {
  json object = head(std::chrono::system_clock::now());
  object["event"] = "host";
  object["host"] = host;
  object["host_state"] = host_state;
  if (since) object["host_since"] = format::utc_time(*since);
  return text_of(object) + "\n";
}

}  // namespace yusb::fleet
