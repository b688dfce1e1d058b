// Events as lines of JSON, for programs.
#ifndef YUSB_FORMAT_JSON_H_
#define YUSB_FORMAT_JSON_H_

#include <cstddef>
#include <optional>
#include <string>

#include "format/known_device.h"

namespace yusb::format {

// One JSON object and a line end, ASCII only. yusb-json(5) lists the fields of schema 1 and their types. It
// never loses a field, and a field never changes its meaning; fields may be added. `openable` is left out if
// it is not known.
std::string json_line(const event& event, std::optional<bool> openable = std::nullopt);

// The same for an event that is not about one device: "listed", "heartbeat". `devices` is the number of
// devices that are attached and selected.
std::string json_line(time_point when, const char* event, std::size_t devices);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_JSON_H_
