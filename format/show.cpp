#include "show.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "utf8.h"

namespace yusb::format {

namespace {

class lines {
 public:
  void add(std::string_view name, const std::string& value) {
    if (!value.empty()) _text += fmt::format("{:<14} {}\n", name, visible(value));
  }
  const std::string& text() const { return _text; }

 private:
  std::string _text;
};

std::string interface_text(const usb_interface& each) {
  std::string text = class_text(each.class_code, each.subclass, each.protocol);
  text += each.driver.empty() ? ", no driver" : ", driver " + each.driver;
  return each.name.empty() ? text : text + ", \"" + each.name + "\"";
}

std::string speed_in_words(double megabits) {
  return megabits == 0 ? std::string() : fmt::format("{:g} Mbit/s", megabits);
}

void add_details(lines& out, const usb_details& details) {
  if (details.bus != 0) out.add("bus", std::to_string(details.bus));
  if (details.address != 0) out.add("address", std::to_string(details.address));
  out.add("node", details.device_node);
  if (details.usb_version != 0) out.add("USB version", version_text(details.usb_version));
  out.add("speed", speed_in_words(details.speed));
  out.add("class", class_text(details.class_code, details.subclass, details.protocol));
  out.add("power", fmt::format("{} mA", details.max_power));
  out.add("configuration",
          details.active_configuration == 0
              ? fmt::format("none of {}", details.configurations)
              : fmt::format("{} of {}", details.active_configuration, details.configurations));
  for (const usb_interface& each : details.interfaces)
    out.add(fmt::format("interface {}", each.number), interface_text(each));
}

}  // namespace

std::string description(const known_device& device, std::optional<bool> openable) {
  lines out;
  out.add("port", port_path(device));
  out.add("location", utf8(device.record.location()));
  out.add("ID", device_id_text(device.record));
  out.add("release", version_text(device.record.revisedID()));
  out.add("manufacturer", manufacturer(device));
  out.add("product", product_name(device));
  out.add("serial number", serial_number(device));
  out.add("what", fmt::format("{}", fmt::join(tags(device), ", ")));
  if (device.details) add_details(out, *device.details);
  if (openable) out.add("openable", *openable ? "yes" : "no");
  return out.text();
}

}  // namespace yusb::format
