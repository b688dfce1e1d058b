#include "floor_core.h"

#include <string>

namespace bench {

void floor_core::append(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> set(_contextsMutex);
  const std::lock_guard<std::mutex> list(_devicesMutex);
  _devices.push_back(record);
  deliver(record, YUSB_DEVICE_EVENT_APPEND);
}

void floor_core::remove(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> set(_contextsMutex);
  const std::lock_guard<std::mutex> list(_devicesMutex);
  const auto found = find(record);
  if (found != _devices.end()) _devices.erase(found);
  deliver(record, YUSB_DEVICE_EVENT_REMOVE);
}

bool floor_core::is_listed(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> list(_devicesMutex);
  return find(record) != _devices.end();
}

void floor_core::walk(const yusb::device_visitor& visitor) {
  std::vector<YUsbInfoDevice> snapshot;
  {
    const std::lock_guard<std::mutex> list(_devicesMutex);
    snapshot = _devices;
  }
  for (const YUsbInfoDevice& record : snapshot) {
    if (!visitor(record)) break;
  }
}

std::vector<YUsbInfoDevice>::iterator floor_core::find(const YUsbInfoDevice& record) {
  auto at = _devices.begin();
  while (at != _devices.end() && at->instancePath() != record.instancePath() &&
         at->location() != record.location()) {
    ++at;
  }
  return at;
}

void floor_core::deliver(const YUsbInfoDevice& record, _yusb_device_event event) {
  for (floor_context* context : _contexts) {
    const std::lock_guard<std::mutex> lock(context->mutex);
    for (yusb_device_event_interface* interface : context->interfaces) {
      interface->on_device_event(record, event);
    }
  }
}

bool floor_is_android(const YUsbInfoDevice& device) {
  for (const unsigned short vendor : {0x2717, 0x12D1, 0x339B, 0x04E8, 0x2D95, 0x22D9, 0x18D1}) {
    if (device.vendorID() == vendor) return true;
  }
  const auto lower = [](const YString& text) {
    std::string copy(text.data(), text.size());
    for (char& c : copy) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return copy;
  };
  const std::string factory = lower(device.factory());
  const std::string describe = lower(device.describe());
  for (const char* const brand : {"xiaomi", "huawei", "honor", "vivo", "oppo", "samsung", "iqoo"}) {
    if (factory.find(brand) != std::string::npos || describe.find(brand) != std::string::npos) return true;
  }
  return false;
}

}  // namespace bench
