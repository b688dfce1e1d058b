// The details of a device, from sysfs.
#ifndef YORVAN_PORT_LINUX_DETAILS_H_
#define YORVAN_PORT_LINUX_DETAILS_H_

#include <optional>

#include <yusb_details.h>

#include "bus/record_key.h"

namespace yusb::port {

// yusb::device_details for the Linux bus. Takes no lock. If the result is empty because descriptors or
// memory ran out, stores that in `error`, otherwise leaves it.
std::optional<usb_details> linux_details(const record_key& record, std::error_code& error);

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_DETAILS_H_
