#include "baseline_core.h"

#include <string>

#include "classify/android_tables.h"

namespace bench {

void baseline_core::append(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> set(_contextsMutex);
  const std::lock_guard<std::mutex> list(_devicesMutex);
  _devices.push_back(record);
  deliver(record, YUSB_DEVICE_EVENT_APPEND);
}

void baseline_core::remove(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> set(_contextsMutex);
  const std::lock_guard<std::mutex> list(_devicesMutex);
  const auto found = find(record);
  if (found != _devices.end()) _devices.erase(found);
  deliver(record, YUSB_DEVICE_EVENT_REMOVE);
}

bool baseline_core::is_listed(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> list(_devicesMutex);
  return find(record) != _devices.end();
}

void baseline_core::walk(const yusb::device_visitor& visitor) {
  std::vector<YUsbInfoDevice> snapshot;
  {
    const std::lock_guard<std::mutex> list(_devicesMutex);
    snapshot = _devices;
  }
  for (const YUsbInfoDevice& record : snapshot) {
    if (!visitor(record)) break;
  }
}

std::vector<YUsbInfoDevice>::iterator baseline_core::find(const YUsbInfoDevice& record) {
  auto at = _devices.begin();
  while (at != _devices.end() && at->instancePath() != record.instancePath() &&
         at->location() != record.location()) {
    ++at;
  }
  return at;
}

void baseline_core::deliver(const YUsbInfoDevice& record, _yusb_device_event event) {
  for (baseline_context* context : _contexts) {
    const std::lock_guard<std::mutex> lock(context->mutex);
    for (yusb_device_event_interface* interface : context->interfaces) {
      interface->on_device_event(record, event);
    }
  }
}

bool baseline_is_android(const YUsbInfoDevice& device) {
  for (const std::uint16_t vendor : yusb::android_vendors) {
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
  for (const char* const brand : yusb::android_brands) {
    if (factory.find(brand) != std::string::npos || describe.find(brand) != std::string::npos) return true;
  }
  return false;
}

}  // namespace bench
