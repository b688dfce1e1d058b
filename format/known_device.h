// A device with all that is known of it, and the words in which the programs say it.
#ifndef YUSB_FORMAT_KNOWN_DEVICE_H_
#define YUSB_FORMAT_KNOWN_DEVICE_H_

#include <optional>
#include <string>
#include <vector>

#include <yusb.h>
#include <yusb_details.h>

#include "format/time.h"

namespace yusb::format {

struct known_device {
  YUsbInfoDevice record;
  std::optional<usb_details> details;  // empty if it was gone before they could be read
};

// Reads the details: file I/O.
known_device look_up(const YUsbInfoDevice& record);

enum class event_kind { arrival, removal, openable, not_openable };

struct event {
  time_point when;
  event_kind kind;
  known_device device;
  bool initial;  // the device was attached when the program began
};

// The strings in UTF-8: whole, or, where the details lack one, that of the record, which has only the low
// byte of each UTF-16 unit.
std::string manufacturer(const known_device& device);
std::string product_name(const known_device& device);
std::string serial_number(const known_device& device);

// "1-2.3"; empty if it is unknown.
std::string port_path(const known_device& device);

// "18d1:4ee7".
std::string device_id_text(const YUsbInfoDevice& record);

// "2.10" for 0x0210.
std::string version_text(unsigned short version);

// "1.5M", "480M", "5G", in bit/s; empty for 0, which is an unknown speed.
std::string speed_text(double megabits);

// "ff/42/01".
std::string class_text(unsigned class_code, unsigned subclass, unsigned protocol);

// What the device is: apple, airpods, android, and the names of its modes.
std::vector<std::string> tags(const known_device& device);

}  // namespace yusb::format

#endif  // YUSB_FORMAT_KNOWN_DEVICE_H_
