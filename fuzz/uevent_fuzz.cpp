// Fuzzes the parser of uevents, and uses each field as a port path.
#include <algorithm>
#include <string>
#include <vector>

#include <yusb_location.h>

#include "linux/uevent.h"
#include "require.h"

using namespace yusb;
using namespace yusb::port;

namespace {

void check_event(std::string_view datagram) {
  const std::optional<uevent> event = parse_uevent(datagram);
  if (!event.has_value()) return;
  require(is_port_path(event->path) && event->devnum != 0, "an event names a device");
  char product[32];
  std::snprintf(product, sizeof product, "%x/%x/%x", event->numbers.vendor, event->numbers.product,
                event->numbers.release);
  const std::string action = event->added ? "add" : "remove";
  std::string again = action + "@/" + event->path + '\0' + "ACTION=" + action + '\0' + "DEVPATH=/devices/" +
                      event->path + '\0' + "SUBSYSTEM=usb" + '\0' + "PRODUCT=" + product + '\0' +
                      "DEVNUM=" + std::to_string(event->devnum) + '\0' + "DEVTYPE=usb_device" + '\0';
  const std::optional<uevent> same = parse_uevent(again);
  require(same.has_value() && same->added == event->added && same->path == event->path &&
              same->devnum == event->devnum && same->numbers.vendor == event->numbers.vendor &&
              same->numbers.product == event->numbers.product &&
              same->numbers.release == event->numbers.release,
          "an event that is written out reads the same");
}

std::string path_of(std::uint32_t location) {
  std::string path = std::to_string(location >> 24);
  if ((location & 0xFFFFFF) == 0) return "usb" + path;
  for (int shift = 20; shift >= 0 && (location >> shift & 15) != 0; shift -= 4)
    path += (shift == 20 ? "-" : ".") + std::to_string(location >> shift & 15);
  return path;
}

void check_path(const std::string& path) {
  const std::optional<std::uint32_t> location = location_of_path(path);
  require(location.has_value() == is_port_path(path), "a path has a location, and nothing else has");
  if (!location.has_value()) return;
  require(*location != 0, "no location is 0");
  const std::uint32_t bus = bus_of_path(path);
  require(bus != 0 && *location >> 24 == (bus <= 255 ? bus : 0), "the bus is the top byte");
  const bool fits = (*location & 0xF00000) != 0 || (*location & 0xFFFFFF) == 0;
  require(!fits || path_of(*location) == path, "only one path has a location of ports");
  const std::uint32_t next = next_location(*location);
  require(next != *location && next != 0 && next >> 24 == *location >> 24 && (next & 0xF00000) == 0,
          "the next location is another that no path of ports has");
}

void check_order(const std::vector<std::string>& paths) {
  for (const std::string& a : paths) {
    require(port_path_within(a, a) && !port_path_before(a, a), "a path is within itself, not before itself");
    for (const std::string& b : paths) {
      require(int{port_path_before(a, b)} + int{port_path_before(b, a)} + int{a == b} == 1,
              "paths are ordered");
      require(!port_path_within(b, a) || a == b || port_path_before(a, b),
              "a hub is before what is behind it");
      for (const std::string& c : paths) {
        require(!port_path_before(a, b) || !port_path_before(b, c) || port_path_before(a, c),
                "the order is transitive");
        require(!port_path_within(c, a) || !port_path_before(a, b) || !port_path_before(b, c) ||
                    port_path_within(b, a),
                "what is behind a hub is in one piece");
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view datagram(reinterpret_cast<const char*>(data), size);
  check_event(datagram);
  std::vector<std::string> paths;
  for (std::string_view rest = datagram; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    const std::string path(rest.substr(0, end));
    check_path(path);
    if (is_port_path(path) && paths.size() < 12) paths.push_back(path);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  check_order(paths);
  return 0;
}
