// The details of a device on macOS.
#ifndef YORVAN_PORT_MACOS_DETAILS_H_
#define YORVAN_PORT_MACOS_DETAILS_H_

#include <optional>

#include <yusb_details.h>

#include "bus/record_key.h"

namespace yusb::port {

// Implements yusb::device_details. Reads properties of IOKit's registry and does not access the device.
std::optional<usb_details> registry_details(const record_key& record);

}  // namespace yusb::port

#endif  // YORVAN_PORT_MACOS_DETAILS_H_
