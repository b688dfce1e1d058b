// What happens on a simulated bus, as a text that people write. A line is one of
//
//   attach PATH VVVV:PPPP [FIELD=VALUE]...    a device arrives
//   hub    PATH VVVV:PPPP [FIELD=VALUE]...    so does a hub: further devices may be attached behind it
//   wait   DURATION                           nothing happens for that long: 250ms, 10s, 5m
//   detach PATH                               what is there leaves; behind a hub, children first
//   # ...                                     nothing, as an empty line; a comment may also end any other
//   line
//
// PATH is where the device is: `usb1` is the root hub of bus 1, `1-2` is what is plugged into its port 2,
// `1-2.3` into port 3 of the hub at 1-2. A root hub need not be there. VVVV:PPPP are the vendor and product
// ID, hexadecimal. The fields are
//
//   release=HHHH            the release (bcdDevice), hexadecimal; 0000 if not given
//   manufacturer="TEXT"     the texts; a device without the field has no such text
//   product="TEXT"
//   serial="TEXT"
//
// A TEXT is UTF-8 with at most 126 UTF-16 units; \" and \\ are the character itself, \xNN is the character of
// that number, hexadecimal.
#ifndef YUSB_TOOLS_SCENARIO_H_
#define YUSB_TOOLS_SCENARIO_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace yusb::tool {

struct scenario_device {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0;
  std::uint32_t location = 0;
  std::optional<std::string> manufacturer;  // UTF-8
  std::optional<std::string> product_name;
  std::optional<std::string> serial_number;
};

struct step {
  enum kind { attach, detach, wait };
  kind what;
  std::size_t device;                  // attach, detach: its index in scenario::devices
  std::chrono::milliseconds duration;  // wait
};

struct scenario {
  std::vector<scenario_device>
      devices;  // each is attached exactly once, and detached at most once after that
  std::vector<step> steps;

  // How many steps there are before the first that is no attach: what is on the bus from the beginning.
  std::size_t opening() const;
};

// Empty, with *error as "NAME:LINE: what is wrong", unless every line is right. `name` is the text's name.
std::optional<scenario> parse_scenario(std::string_view text, std::string_view name, std::string* error);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_SCENARIO_H_
