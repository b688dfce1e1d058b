// The details of a device on a Mac.
#ifndef YORVAN_PORT_MACOS_DETAILS_H_
#define YORVAN_PORT_MACOS_DETAILS_H_

#include <optional>

#include <yusb_details.h>

#include "bus/record_key.h"

namespace yusb::port {

// What yusb::device_details returns. Reads properties of IOKit's registry, which asks no device.
std::optional<usb_details> registry_details(const record_key& record);

}  // namespace yusb::port

#endif  // YORVAN_PORT_MACOS_DETAILS_H_
