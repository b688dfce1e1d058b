#include "scenario.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <yusb_location.h>

#include "format/duration.h"
#include "format/hex.h"
#include "format/utf8.h"

namespace yusb::tool {

using namespace format;

namespace {

// In UTF-16 units: a string descriptor has at most 255 bytes, of which two are its header.
constexpr std::size_t longest_string = 126;

// Why a line is wrong.
struct fault {
  std::string what;
};

std::string quoted(std::string_view text) { return "'" + visible(text) + "'"; }

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Reads one line word by word.
class line_reader {
 public:
  explicit line_reader(std::string_view line) : _rest(line) { skip_blanks(); }

  bool at_end() const { return _rest.empty(); }

  // The next word; empty at the end.
  std::string_view word() {
    const std::string_view taken = _rest.substr(0, _rest.find_first_of(" \t"));
    _rest.remove_prefix(taken.size());
    skip_blanks();
    return taken;
  }

  // The text before the next '='; skips the '='.
  std::string_view key() {
    const std::size_t size = _rest.find_first_of("= \t");
    if (size == std::string_view::npos || _rest[size] != '=')
      throw fault{quoted(word()) + " is not FIELD=VALUE"};
    const std::string_view taken = _rest.substr(0, size);
    _rest.remove_prefix(size + 1);
    return taken;
  }

  // A quoted string, with its escapes replaced.
  std::string text() {
    if (at_end() || _rest.front() != '"') throw fault{"a string must be in quotes: FIELD=\"TEXT\""};
    _rest.remove_prefix(1);
    std::string out;
    std::size_t units = 0;
    while (true) {
      if (_rest.empty()) throw fault{"the closing quote is missing"};
      if (_rest.front() == '"') break;
      const char32_t code_point = character();
      units += code_point > 0xFFFF ? 2 : 1;
      append_utf8(out, code_point);
    }
    if (units > longest_string)
      throw fault{"a string has at most 126 UTF-16 units, this one has " + std::to_string(units)};
    _rest.remove_prefix(1);
    if (!_rest.empty() && !is_blank(_rest.front())) throw fault{"a space is missing after the closing quote"};
    skip_blanks();
    return out;
  }

 private:
  // Skips to the next word. A comment ends the line.
  void skip_blanks() {
    while (!_rest.empty() && is_blank(_rest.front())) _rest.remove_prefix(1);
    if (!_rest.empty() && _rest.front() == '#') _rest = {};
  }

  char32_t character() {
    char32_t code_point = 0;
    if (!take_code_point(_rest, &code_point)) throw fault{"the string is not UTF-8"};
    if (code_point != '\\') return code_point;
    const std::string_view escape = _rest.substr(0, _rest.substr(0, 1) == "x" ? 3 : 1);
    _rest.remove_prefix(escape.size());
    if (escape == "\"" || escape == "\\") return static_cast<unsigned char>(escape.front());
    const auto number = escape.size() == 3 ? parse_hex(escape.substr(1), 2) : std::nullopt;
    if (!number) throw fault{quoted("\\" + std::string(escape)) + " is not one of \\\", \\\\, \\xNN"};
    return *number;
  }

  std::string_view _rest;
};

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
    read_fields(line, &device);
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

  static void read_fields(line_reader& line, scenario_device* device) {
    std::optional<std::uint32_t> release;
    while (!line.at_end()) {
      const std::string_view key = line.key();
      std::optional<std::string>* const text = key == "manufacturer" ? &device->manufacturer
                                               : key == "product"    ? &device->product_name
                                               : key == "serial"     ? &device->serial_number
                                                                     : nullptr;
      if (text == nullptr && key != "release") {
        throw fault{quoted(key) + " is not one of release, manufacturer, product, serial"};
      }
      if (text == nullptr ? release.has_value() : text->has_value())
        throw fault{quoted(key) + " is given twice"};
      if (text != nullptr) {
        *text = line.text();
      } else {
        const std::string_view value = line.word();
        release = parse_hex(value, 4);
        if (!release) throw fault{quoted(value) + " is not HHHH, a hexadecimal release number"};
      }
    }
    device->release = static_cast<std::uint16_t>(release.value_or(0));
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
