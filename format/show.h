#ifndef YUSB_FORMAT_SHOW_H_
#define YUSB_FORMAT_SHOW_H_

#include <optional>
#include <string>

#include "format/known_device.h"

namespace yusb::format {

// Everything that is known of a device, one "name  value" a line. `openable`: whether this process may open
// the device's node; empty if that is unknown.
std::string description(const known_device& device, std::optional<bool> openable);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_SHOW_H_
