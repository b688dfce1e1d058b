#include "json.h"

#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include "utf8.h"

namespace yusb::format {

namespace {

using json = nlohmann::ordered_json;

const char* name_of(event_kind kind) {
  switch (kind) {
    case event_kind::arrival:
      return "arrival";
    case event_kind::removal:
      return "removal";
    case event_kind::openable:
      return "openable";
    case event_kind::not_openable:
      return "not_openable";
  }
  return "";
}

json head(time_point when, const char* event) {
  json object;
  object["schema"] = 1;
  object["time"] = utc_time(when);
  object["event"] = event;
  return object;
}

// What the system does not know is null.
template <typename Number>
json number_or_null(Number number) {
  return number == 0 ? json() : json(number);
}
json text_or_null(const std::string& text) { return text.empty() ? json() : json(text); }

std::string hex_byte(unsigned value) { return fmt::format("{:02x}", value); }

json interfaces(const usb_details& details) {
  json list = json::array();
  for (const usb_interface& each : details.interfaces) {
    json object;
    object["number"] = each.number;
    object["class"] = hex_byte(each.class_code);
    object["subclass"] = hex_byte(each.subclass);
    object["protocol"] = hex_byte(each.protocol);
    object["name"] = each.name;
    object["driver"] = text_or_null(each.driver);
    list.push_back(std::move(object));
  }
  return list;
}

json modes(const usb_details& details) {
  json list = json::array();
  for (const device_mode mode : device_modes(details).list()) list.push_back(to_string(mode));
  return list;
}

void add_details(json& object, const std::optional<usb_details>& known) {
  const usb_details details = known.value_or(usb_details());
  object["port"] = text_or_null(details.port_path);
  object["bus"] = number_or_null(details.bus);
  object["address"] = number_or_null(details.address);
  object["device_node"] = text_or_null(details.device_node);
  object["usb_version"] = details.usb_version == 0 ? json() : json(version_text(details.usb_version));
  object["class"] = known ? json(hex_byte(details.class_code)) : json();
  object["subclass"] = known ? json(hex_byte(details.subclass)) : json();
  object["protocol"] = known ? json(hex_byte(details.protocol)) : json();
  object["speed"] = number_or_null(details.speed);
  object["max_power"] = known ? json(details.max_power) : json();
  object["configurations"] = number_or_null(details.configurations);
  object["active_configuration"] = number_or_null(details.active_configuration);
  object["interfaces"] = interfaces(details);
  object["modes"] = modes(details);
}

std::string line_of(const json& object) {
  constexpr bool ascii = true;  // otherwise DEL and C1 control characters would reach a terminal unescaped
  // A string that is not UTF-8 can only come from the system; it must not end the program.
  return object.dump(-1, ' ', ascii, json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string json_line(const event& event, std::optional<bool> openable) {
  const YUsbInfoDevice& record = event.device.record;
  json object = head(event.when, name_of(event.kind));
  object["location"] = utf8(record.location());
  object["vendor_id"] = fmt::format("{:04x}", record.vendorID());
  object["product_id"] = fmt::format("{:04x}", record.productID());
  object["release"] = version_text(record.revisedID());
  object["manufacturer"] = manufacturer(event.device);
  object["product"] = product_name(event.device);
  object["serial_number"] = serial_number(event.device);
  object["apple"] = device_is_apple(record);
  object["airpods"] = device_is_airpods(record);
  object["android"] = device_is_android(record);
  object["initial"] = event.initial;
  add_details(object, event.device.details);
  if (openable) object["openable"] = *openable;
  return line_of(object);
}

std::string json_line(time_point when, const char* event, std::size_t devices) {
  json object = head(when, event);
  object["devices"] = devices;
  return line_of(object);
}

}  // namespace yusb::format
