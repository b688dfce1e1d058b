#include "known_device.h"

#include <fmt/format.h>

#include "utf8.h"

namespace yusb::format {

namespace {

std::string whole_or_record(const known_device& device, std::string usb_details::*whole,
                            const YString& record) {
  if (device.details && !((*device.details).*whole).empty()) return (*device.details).*whole;
  return utf8(record);
}

}  // namespace

known_device look_up(const YUsbInfoDevice& record) { return {record, device_details(record)}; }

std::string manufacturer(const known_device& device) {
  return whole_or_record(device, &usb_details::manufacturer, device.record.factory());
}

std::string product_name(const known_device& device) {
  return whole_or_record(device, &usb_details::product_name, device.record.describe());
}

std::string serial_number(const known_device& device) {
  return whole_or_record(device, &usb_details::serial_number, device.record.serialNumber());
}

std::string port_path(const known_device& device) {
  return device.details ? device.details->port_path : std::string();
}

std::string device_id_text(const YUsbInfoDevice& record) {
  return fmt::format("{:04x}:{:04x}", record.vendorID(), record.productID());
}

std::string version_text(unsigned short version) {
  return fmt::format("{:x}.{:02x}", version >> 8, version & 0xFFU);
}

std::string speed_text(double megabits) {
  if (megabits <= 0) return {};
  return megabits < 1000 ? fmt::format("{:g}M", megabits) : fmt::format("{:g}G", megabits / 1000);
}

std::string class_text(unsigned class_code, unsigned subclass, unsigned protocol) {
  return fmt::format("{:02x}/{:02x}/{:02x}", class_code, subclass, protocol);
}

std::vector<std::string> tags(const known_device& device) {
  std::vector<std::string> names;
  if (device_is_apple(device.record)) names.emplace_back("apple");
  if (device_is_airpods(device.record)) names.emplace_back("airpods");
  if (device_is_android(device.record)) names.emplace_back("android");
  if (device.details) {
    for (const device_mode mode : device_modes(*device.details).list()) names.emplace_back(to_string(mode));
  }
  return names;
}

}  // namespace yusb::format
