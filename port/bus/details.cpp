#include <yusb_details.h>

#include "bus/bus.h"

std::optional<yusb::usb_details> yusb::device_details(const YUsbInfoDevice& record) {
  return port::current_bus().details(port::record_key(record));
}
