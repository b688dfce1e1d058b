#include "linux/details.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include <yusb_location.h>

#include "bus/descriptors.h"
#include "linux/sysfs.h"

namespace yusb::port {

namespace {

constexpr std::size_t page = 4096;                  // the most that one read of a sysfs file returns
constexpr std::size_t descriptors_limit = 1 << 20;  // eight configurations of 64 KiB
constexpr std::uint32_t collision_limit = 16;       // devices with the same hashed location that are searched

// "480", "1.5"; 0 for "unknown".
double read_speed(const sysfs_device& device) {
  char text[16];
  const ssize_t size = device.read("speed", text, sizeof text);
  if (size <= 0) return 0;
  const char* const end = text + size;
  unsigned whole = 0, tenth = 0;
  const char* const after = std::from_chars(text, end, whole).ptr;
  if (end - after >= 2 && *after == '.') std::from_chars(after + 1, after + 2, tenth);
  return whole + tenth / 10.0;
}

// Reads all descriptors, into `buffer` if they fit.
std::string_view read_descriptors(const sysfs_device& device, char (&buffer)[page], std::string* storage) {
  ssize_t size = device.read("descriptors", buffer, sizeof buffer);
  if (size == sizeof buffer) {
    *storage = device.read_all("descriptors", descriptors_limit);
    return *storage;
  }
  return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

void add_interfaces(const sysfs_device& device, const configuration_descriptor& configuration,
                    usb_details* details) {
  details->interfaces.reserve(configuration.interfaces.size());
  for (const interface_descriptor& each : configuration.interfaces) {
    usb_interface& made = details->interfaces.emplace_back();
    made.number = each.number;
    made.class_code = each.class_code;
    made.subclass = each.subclass;
    made.protocol = each.protocol;
    if (details->active_configuration == 0) continue;

    char name[256];
    const auto print_name = [&](const char* file) {
      const bool root_hub = details->port_path[0] == 'u';
      return std::snprintf(name, sizeof name, "%s%s:%u.%u/%s",
                           details->port_path.c_str() + (root_hub ? 3 : 0), root_hub ? "-0" : "",
                           details->active_configuration, each.number, file);
    };
    char buffer[sysfs_string_limit];
    print_name("driver");
    made.driver = device.read_link(name, buffer, sizeof buffer);
    if (each.string_index == 0) continue;
    print_name("interface");
    if (const auto text = device.read_text(name, buffer)) made.name = valid_utf8(*text);
  }
}

// Empty if the device at the path is not the record's, or cannot be read: then `device` says so.
std::optional<usb_details> read_details(const sysfs_device& device, const std::string& path,
                                        const record_key& record) {
  if (!device) return std::nullopt;
  char buffer[page];
  std::string storage;
  const std::string_view descriptors = read_descriptors(device, buffer, &storage);
  const auto described = parse_device_descriptor(descriptors);
  if (!described.has_value() || described->vendor != record.vendor || described->product != record.product ||
      described->release != record.release)
    return std::nullopt;

  std::optional<usb_details> made(std::in_place);
  usb_details& details = *made;
  const struct {
    const char* file;
    const YString& kept;
    std::string& whole;
  } strings[] = {{"manufacturer", record.manufacturer, details.manufacturer},
                 {"product", record.product_name, details.product_name},
                 {"serial", record.serial_number, details.serial_number}};
  for (std::size_t i = 0; i < 3; ++i) {
    char buffer[sysfs_string_limit];
    std::optional<std::string_view> found = "";
    if (described->string_index[i] != 0) found = device.read_text(strings[i].file, buffer);
    if (!found.has_value()) continue;
    if (!same_string(strings[i].kept, *found)) return std::nullopt;
    strings[i].whole = valid_utf8(*found);
  }

  details.vendor = described->vendor;
  details.product = described->product;
  details.release = described->release;
  details.usb_version = described->usb_version;
  details.class_code = described->class_code;
  details.subclass = described->subclass;
  details.protocol = described->protocol;
  details.bus = bus_of_path(path);
  details.port_path = path;
  details.speed = read_speed(device);
  details.configurations = described->configurations;
  details.active_configuration =
      static_cast<std::uint8_t>(device.read_number("bConfigurationValue").value_or(0));
  if (const auto shown = find_configuration(descriptors, details.active_configuration)) {
    details.max_power = static_cast<std::uint16_t>(shown->max_power * (details.speed >= 5000 ? 8 : 2));
    add_interfaces(device, *shown, &details);
  }
  // Last, so that everything read before is known to be of an attached device.
  details.address = device.read_number("devnum").value_or(0);
  if (details.address == 0 || device.exhausted()) return std::nullopt;
  details.device_node = device_node(details.bus, details.address);
  return made;
}

std::optional<usb_details> read_path(const std::string& path, const record_key& record,
                                     std::error_code& error) {
  const sysfs_device device(path);
  std::optional<usb_details> details = read_details(device, path, record);
  if (device.exhausted()) error = device.exhausted();
  return details;
}

// The paths of the devices that may have this hashed location, the most likely first: after a collision a
// device gets one of the next locations.
std::vector<std::string> hashed_paths(std::uint32_t location, std::error_code& error) {
  std::vector<std::pair<std::uint32_t, std::string>> found;
  std::optional<std::vector<std::string>> devices = list_devices();
  if (!devices.has_value()) {
    error.assign(errno, std::generic_category());
    return {};
  }
  for (std::string& path : *devices) {
    std::uint32_t at = location_of_path(path).value_or(0);
    if (!location_may_collide(at) || at >> 24 != location >> 24) continue;
    std::uint32_t steps = 0;
    for (; at != location && steps <= collision_limit; ++steps) at = next_location(at);
    if (steps <= collision_limit) found.emplace_back(steps, std::move(path));
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> paths;
  for (auto& [steps, path] : found) paths.push_back(std::move(path));
  return paths;
}

}  // namespace

std::optional<usb_details> linux_details(const record_key& record, std::error_code& error) {
  if (!location_may_collide(record.location)) {
    const std::string path = path_of_location(record.location);
    return path.empty() ? std::nullopt : read_path(path, record, error);
  }
  for (const std::string& path : hashed_paths(record.location, error)) {
    if (std::optional<usb_details> details = read_path(path, record, error)) {
      error.clear();  // of another device whose location has the same hash
      return details;
    }
  }
  return std::nullopt;
}

}  // namespace yusb::port
