#include "picture.h"

#include <algorithm>

namespace yusb::tool {

namespace {

// More than ==, which would not see that one device took another's place.
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

std::vector<event> picture::apply(const watch_event& told, time_point when) {
  std::vector<event> changes;
  switch (told.kind) {
    case watch_kind::arrival:
      _devices.push_back(told.device);
      changes.push_back({when, true, told.device});
      break;
    case watch_kind::removal:
      _devices.erase(std::remove(_devices.begin(), _devices.end(), told.device), _devices.end());
      changes.push_back({when, false, told.device});
      break;
    case watch_kind::resync:
      for (auto device = _devices.rbegin(); device != _devices.rend(); ++device) {
        if (!contains(told.devices, *device)) changes.push_back({when, false, *device});
      }
      for (const auto& device : told.devices) {
        if (!contains(_devices, device)) changes.push_back({when, true, device});
      }
      _devices = told.devices;
      break;
  }
  return changes;
}

}  // namespace yusb::tool
