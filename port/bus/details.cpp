#include <yusb_details.h>

#include "bus/bus.h"

std::optional<yusb::usb_details> yusb::device_details(const YUsbInfoDevice& record) {
  std::error_code ignored;
  return device_details(record, ignored);
}

std::optional<yusb::usb_details> yusb::device_details(const YUsbInfoDevice& record, std::error_code& error) {
  error.clear();
  return port::current_bus().details(port::record_key(record), error);
}
