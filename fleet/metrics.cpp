#include "metrics.h"

#include <cstdint>
#include <functional>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "format/utf8.h"

namespace yusb::fleet {

namespace {

std::string label(const std::string& text) {
  std::string made;
  // The exporter would reject the whole file if one label were not UTF-8.
  for (const char c : format::visible(text)) {
    if (c == '\\' || c == '"') made += '\\';
    made += c;
  }
  return made;
}

// The values of one metric, by their labels.
using samples = std::map<std::string, std::uint64_t>;

std::string block(const char* name, const char* type, const char* help, const samples& values) {
  std::string text = fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  for (const auto& [labels, value] : values) text += fmt::format("{}{{{}}} {}\n", name, labels, value);
  return text;
}

void count_classes(samples& counts, const std::string& host, const usb_details& details) {
  std::set<unsigned> classes;
  if (details.class_code != 0) classes.insert(details.class_code);
  for (const usb_interface& each : details.interfaces) classes.insert(each.class_code);
  for (const unsigned each : classes) ++counts[fmt::format("{},class=\"{:02x}\"", host, each)];
}

}  // namespace

std::string metrics_text(const std::map<std::string, host>& hosts) {
  samples up;
  samples complete;
  samples devices;
  samples classes;
  samples modes;
  samples arrivals;
  samples removals;
  for (const auto& [level, each] : hosts) {
    const std::string host = fmt::format("host=\"{}\"", label(each.name));
    up[host] = each.state == host_state::online ? 1 : 0;
    complete[host] = each.incomplete ? 0 : 1;
    if (!each.inventory) continue;
    arrivals[host] = each.inventory->arrivals;
    removals[host] = each.inventory->removals;
    if (each.incomplete && each.devices.empty()) continue;  // they are not known
    devices[host] = each.devices.size();
    for (const auto& [name, shown] : each.devices) {
      count_classes(classes, host, *shown->device.details);
      for (const std::string& tag : format::tags(shown->device))
        ++modes[fmt::format("{},mode=\"{}\"", host, label(tag))];
    }
  }
  return block("yusb_fleet_agent_up", "gauge", "1 if the host's agent is online and not stale.", up) +
         block("yusb_fleet_complete", "gauge",
               "0 if the broker did not send all devices of the host; they are then as last known.",
               complete) +
         block("yusb_fleet_devices", "gauge", "USB devices that are attached, as last known.", devices) +
         block("yusb_fleet_devices_by_class", "gauge",
               "Devices that are of a USB class or have an interface of it.", classes) +
         block("yusb_fleet_devices_by_mode", "gauge", "Devices by what yusb calls them: tags and modes.",
               modes) +
         block("yusb_fleet_arrivals_total", "counter", "Arrivals since the host's agent started.", arrivals) +
         block("yusb_fleet_removals_total", "counter", "Removals since the host's agent started.", removals);
}

}  // namespace yusb::fleet
