#include "known_devices.h"

#include <algorithm>

namespace yusb::tool {

namespace {

// Compares all fields: operator== does not distinguish a device from its successor at the same location.
bool identical(const YUsbInfoDevice& a, const YUsbInfoDevice& b) {
  return a.location() == b.location() && a.vendorID() == b.vendorID() && a.productID() == b.productID() &&
         a.revisedID() == b.revisedID() && a.factory() == b.factory() && a.describe() == b.describe() &&
         a.serialNumber() == b.serialNumber();
}

bool contains(const std::vector<YUsbInfoDevice>& devices, const YUsbInfoDevice& device) {
  return std::any_of(devices.begin(), devices.end(),
                     [&](const auto& each) { return identical(each, device); });
}

}  // namespace

std::vector<format::event> known_devices::apply(const watch_event& event, format::time_point when) {
  std::vector<format::event> changes;
  switch (event.kind) {
    case watch_kind::arrival:
      _devices.push_back(event.device);
      changes.push_back({when, true, event.device});
      break;
    case watch_kind::removal:
      _devices.erase(std::remove(_devices.begin(), _devices.end(), event.device), _devices.end());
      changes.push_back({when, false, event.device});
      break;
    case watch_kind::resync:
      for (auto device = _devices.rbegin(); device != _devices.rend(); ++device) {
        if (!contains(event.devices, *device)) changes.push_back({when, false, *device});
      }
      for (const auto& device : event.devices) {
        if (!contains(_devices, device)) changes.push_back({when, true, device});
      }
      _devices = event.devices;
      break;
  }
  return changes;
}

}  // namespace yusb::tool
