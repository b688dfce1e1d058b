// A scenario: a text file that says what happens on a simulated bus. Each line is one of
//
//   attach PATH VVVV:PPPP [FIELD=VALUE]...    attaches a device
//   hub    PATH VVVV:PPPP [FIELD=VALUE]...    attaches a hub, behind which devices may be attached
//   wait   DURATION                           pauses: 250ms, 10s, 5m
//   detach PATH                               detaches the device; a hub after all that is behind it
//   # ...                                     a comment, also at the end of another line
//
// and may be empty. PATH is a path of ports: `usb1` is the root hub of bus 1, `1-2` the device at its port 2,
// `1-2.3` the device at port 3 of the hub at 1-2. Root hubs need not be attached. VVVV:PPPP are the vendor ID
// and the product ID, hexadecimal. The fields are
//
//   release=HHHH            the release number (bcdDevice), hexadecimal; 0000 by default
//   manufacturer="TEXT"     the strings; by default a device has none
//   product="TEXT"
//   serial="TEXT"
//   class=CC/SS/PP          class, subclass and protocol of the device, hexadecimal; 00/00/00 by default,
//                           09/00/00 of a hub
//   interface=CC/SS/PP      an interface, likewise; more of them may follow. With :"TEXT" it has a name.
//   speed=NUMBER            in Mbit/s; 480 by default
//   openable=DURATION       how long after its arrival the device can be opened, or "never"; 0s by default
//
// A TEXT is UTF-8 with at most 126 UTF-16 units. \" and \\ stand for " and \, and \xNN for the character with
// the hexadecimal number NN.
#ifndef YUSB_TOOLS_SCENARIO_H_
#define YUSB_TOOLS_SCENARIO_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <yusb_details.h>

namespace yusb::tool {

struct scenario_device {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0;
  std::uint32_t location = 0;
  std::string path;
  std::optional<std::string> manufacturer;  // UTF-8
  std::optional<std::string> product_name;
  std::optional<std::string> serial_number;
  std::uint8_t class_code = 0;
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
  std::vector<usb_interface> interfaces;                                                   // numbered from 0
  double speed = 480;                                                                      // in Mbit/s
  std::optional<std::chrono::milliseconds> openable_after = std::chrono::milliseconds(0);  // empty: never
};

struct step {
  enum kind { attach, detach, wait };
  kind what;
  std::size_t device;                  // attach, detach: its index in scenario::devices
  std::chrono::milliseconds duration;  // wait
};

struct scenario {
  // Each is attached exactly once, and detached at most once after that.
  std::vector<scenario_device> devices;
  std::vector<step> steps;

  // The number of steps before the first that is not an attach: the devices attached from the start.
  std::size_t opening() const;
};

// `name` is the file's name, for messages. If a line is invalid, returns nothing and stores
// "NAME:LINE: reason" in *error.
std::optional<scenario> parse_scenario(std::string_view text, std::string_view name, std::string* error);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_SCENARIO_H_
