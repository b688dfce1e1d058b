#include "scenario.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <yusb_location.h>

#include "format/duration.h"
#include "format/hex.h"
#include "format/utf8.h"
#include "line_reader.h"

namespace yusb::tool {

using namespace format;

namespace {

constexpr std::size_t most_interfaces = 32;  // USB allows no more

constexpr std::pair<std::string_view, double> speeds[] = {{"1.5", 1.5},   {"12", 12},       {"480", 480},
                                                          {"5000", 5000}, {"10000", 10000}, {"20000", 20000}};

// A field of a device: how it is read, and whether it may be given more than once.
struct field {
  std::string_view name;
  void (*read)(line_reader&, scenario_device*);
  bool repeats = false;
};

void read_release(line_reader& line, scenario_device* device) {
  const std::string_view value = line.word();
  const auto release = parse_hex(value, 4);
  if (!release) throw fault{quoted(value) + " is not HHHH, a hexadecimal release number"};
  device->release = static_cast<std::uint16_t>(*release);
}

std::vector<std::uint8_t> read_class_code(line_reader& line) {
  const std::string_view value = line.word_before_colon();
  const std::vector<std::uint8_t> numbers = parse_class(value);
  if (numbers.size() != 3)
    throw fault{quoted(value) + " is not CC/SS/PP, a hexadecimal class, subclass and protocol"};
  return numbers;
}

void read_class(line_reader& line, scenario_device* device) {
  const std::vector<std::uint8_t> numbers = read_class_code(line);
  device->class_code = numbers[0];
  device->subclass = numbers[1];
  device->protocol = numbers[2];
}

void read_interface(line_reader& line, scenario_device* device) {
  const std::vector<std::uint8_t> numbers = read_class_code(line);
  if (device->interfaces.size() == most_interfaces) throw fault{"a device has at most 32 interfaces"};
  usb_interface made;
  made.number = static_cast<std::uint8_t>(device->interfaces.size());
  made.class_code = numbers[0];
  made.subclass = numbers[1];
  made.protocol = numbers[2];
  if (line.take_colon()) made.name = line.text();
  device->interfaces.push_back(std::move(made));
}

void read_speed(line_reader& line, scenario_device* device) {
  const std::string_view value = line.word();
  const auto found = std::find_if(std::begin(speeds), std::end(speeds),
                                  [&](const auto& each) { return each.first == value; });
  if (found == std::end(speeds))
    throw fault{quoted(value) + " is not one of 1.5, 12, 480, 5000, 10000, 20000, in Mbit/s"};
  device->speed = found->second;
}

void read_openable(line_reader& line, scenario_device* device) {
  const std::string_view value = line.word();
  device->openable_after = parse_duration(value);
  if (!device->openable_after && value != "never")
    throw fault{quoted(value) + " is neither 'never' nor a duration: " + duration_rule};
}

constexpr field fields[] = {
    {"release", read_release},
    {"manufacturer", [](line_reader& line, scenario_device* device) { device->manufacturer = line.text(); }},
    {"product", [](line_reader& line, scenario_device* device) { device->product_name = line.text(); }},
    {"serial", [](line_reader& line, scenario_device* device) { device->serial_number = line.text(); }},
    {"class", read_class},
    {"interface", read_interface, true},
    {"speed", read_speed},
    {"openable", read_openable}};

void read_fields(line_reader& line, scenario_device* device) {
  std::set<std::string_view> given;
  while (!line.at_end()) {
    const std::string_view key = line.key();
    const auto found = std::find_if(std::begin(fields), std::end(fields),
                                    [&](const field& each) { return each.name == key; });
    if (found == std::end(fields)) {
      throw fault{quoted(key) +
                  " is not one of release, manufacturer, product, serial, class, interface, speed, openable"};
    }
    if (!given.insert(key).second && !found->repeats) throw fault{quoted(key) + " is given twice"};
    found->read(line, device);
  }
}

class parser {
 public:
  void parse_line(std::string_view text) {
    line_reader line(text);
    if (line.at_end()) return;
    const std::string_view verb = line.word();
    if (verb == "attach" || verb == "hub") {
      attach(line, verb == "hub");
    } else if (verb == "detach") {
      detach(path(line));
    } else if (verb == "wait") {
      const std::string_view duration = line.word();
      const auto parsed = parse_duration(duration);
      if (!parsed) throw fault{quoted(duration) + " is not a duration: " + duration_rule};
      _result.steps.push_back({step::wait, 0, *parsed});
    } else {
      throw fault{quoted(verb) + " is not one of attach, hub, wait, detach"};
    }
    if (!line.at_end()) throw fault{"unexpected " + quoted(line.word())};
  }

  scenario result() && { return std::move(_result); }

 private:
  struct attached {
    std::size_t device;
    bool is_hub;
  };

  static std::string path(line_reader& line) {
    const std::string_view text = line.word();
    if (!is_port_path(text)) {
      throw fault{quoted(text) +
                  " is not a port path, such as usb1 for a root hub, 1-2 or 1-2.3 for a device behind it"};
    }
    return std::string(text);
  }

  void attach(line_reader& line, bool is_hub) {
    const std::string where = path(line);
    check_place(where);
    const std::string_view id = line.word();
    const auto numbers = parse_device_id(id);
    if (!numbers) throw fault{quoted(id) + " is not VVVV:PPPP, the hexadecimal vendor ID and product ID"};
    scenario_device device;
    device.vendor = numbers->vendor;
    device.product = numbers->product;
    if (is_hub) device.class_code = 0x09;
    read_fields(line, &device);
    device.path = where;
    device.location = take_location(where);
    _attached[where] = {_result.devices.size(), is_hub};
    _result.steps.push_back({step::attach, _result.devices.size(), {}});
    _result.devices.push_back(std::move(device));
  }

  void check_place(const std::string& where) const {
    if (_attached.count(where) != 0) throw fault{"a device is already attached at " + where};
    const std::size_t last_dot = where.rfind('.');
    const bool behind_root = last_dot == std::string::npos;
    const std::string hub = behind_root ? root_of(where) : where.substr(0, last_dot);
    if (hub == where) return;
    const auto found = _attached.find(hub);
    if (found == _attached.end() && !behind_root) throw fault{"no hub is attached at " + hub};
    if (found != _attached.end() && !found->second.is_hub)
      throw fault{"the device at " + hub + " is not a hub"};
  }

  static std::string root_of(const std::string& path) { return "usb" + std::to_string(bus_of_path(path)); }

  // A location that no attached device has, chosen as the Linux bus does.
  std::uint32_t take_location(const std::string& where) {
    std::uint32_t location = *location_of_path(where);
    while (!_locations.insert(location).second) location = next_location(location);
    return location;
  }

  void detach(const std::string& where) {
    const auto first = _attached.find(where);
    if (first == _attached.end()) throw fault{"no device is attached at " + where};
    const auto last = std::find_if(first, _attached.end(),
                                   [&](const auto& entry) { return !port_path_within(entry.first, where); });
    for (auto leaving = last; leaving != first;) {
      --leaving;
      const std::size_t device = leaving->second.device;
      _locations.erase(_result.devices[device].location);
      _result.steps.push_back({step::detach, device, {}});
    }
    _attached.erase(first, last);
  }

  scenario _result;
  std::set<std::uint32_t> _locations;  // of the attached devices
  // By path; path_before orders children after their hub.
  std::map<std::string, attached, decltype(&port_path_before)> _attached{port_path_before};
};

}  // namespace

std::size_t scenario::opening() const {
  const auto first =
      std::find_if(steps.begin(), steps.end(), [](const step& s) { return s.what != step::attach; });
  return static_cast<std::size_t>(first - steps.begin());
}

std::optional<scenario> parse_scenario(std::string_view text, std::string_view name, std::string* error) {
  parser parser;
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";  // some editors begin a file with it
  if (text.substr(0, byte_order_mark.size()) == byte_order_mark) text.remove_prefix(byte_order_mark.size());
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    try {
      parser.parse_line(line);
    } catch (const fault& wrong) {
      *error = visible(name) + ":" + std::to_string(number) + ": " + wrong.what;
      return std::nullopt;
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return std::move(parser).result();
}

}  // namespace yusb::tool
