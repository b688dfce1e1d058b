#include "known_devices.h"

#include <algorithm>
#include <utility>

namespace yusb::tool {

namespace {

using format::event_kind;
using format::known_device;

// Compares all fields: operator== does not distinguish a device from its successor at the same location.
bool identical(const YUsbInfoDevice& a, const YUsbInfoDevice& b) {
  return a.location() == b.location() && a.vendorID() == b.vendorID() && a.productID() == b.productID() &&
         a.revisedID() == b.revisedID() && a.factory() == b.factory() && a.describe() == b.describe() &&
         a.serialNumber() == b.serialNumber();
}

}  // namespace

void known_devices::arrived(known_device device) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _arrived.push_back(std::move(device));
}

known_device known_devices::take_arrived(const YUsbInfoDevice& record) {
  const std::lock_guard<std::mutex> lock(_mutex);
  const auto found = std::find_if(_arrived.begin(), _arrived.end(),
                                  [&](const known_device& each) { return identical(each.record, record); });
  if (found == _arrived.end()) return format::look_up(record);
  known_device device = std::move(*found);
  _arrived.erase(found);
  return device;
}

std::vector<format::event> known_devices::apply(const openable_event& event, format::time_point when,
                                                bool initial) {
  if (event.kind == openable_kind::resync) return resync(event.devices, when, initial);
  if (event.kind == openable_kind::arrival) {
    _devices.push_back({take_arrived(event.device), initial});
    return {{when, event_kind::arrival, _devices.back().device, initial}};
  }
  const auto found = std::find_if(_devices.begin(), _devices.end(),
                                  [&](const entry& each) { return each.device.record == event.device; });
  if (found == _devices.end()) return {};
  if (event.kind == openable_kind::removal) {
    const entry removed = std::move(*found);
    _devices.erase(found);
    return {{when, event_kind::removal, removed.device, removed.initial}};
  }
  // The system has configured the device by now, so more is known of it than at its arrival.
  known_device now = format::look_up(event.device);
  if (!now.details) now = found->device;
  const auto kind = event.kind == openable_kind::openable ? event_kind::openable : event_kind::not_openable;
  return {{when, kind, std::move(now), found->initial}};
}

std::vector<format::event> known_devices::resync(const std::vector<YUsbInfoDevice>& attached,
                                                 format::time_point when, bool initial) {
  std::vector<format::event> changes;
  const auto stays = [&](const entry& known) {
    return std::any_of(attached.begin(), attached.end(),
                       [&](const auto& each) { return identical(each, known.device.record); });
  };
  for (auto known = _devices.rbegin(); known != _devices.rend(); ++known) {
    if (!stays(*known)) changes.push_back({when, event_kind::removal, known->device, known->initial});
  }
  // Most of what was kept is of arrivals that the queue has dropped. The last one at a place counts.
  std::deque<known_device> arrived;
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    arrived.swap(_arrived);
  }
  std::vector<entry> devices;
  for (const YUsbInfoDevice& record : attached) {
    const auto known = std::find_if(_devices.begin(), _devices.end(),
                                    [&](const entry& each) { return identical(each.device.record, record); });
    if (known != _devices.end()) {
      devices.push_back(*known);
      continue;
    }
    const auto last = std::find_if(arrived.rbegin(), arrived.rend(),
                                   [&](const known_device& each) { return identical(each.record, record); });
    devices.push_back({last == arrived.rend() ? format::look_up(record) : *last, initial});
    changes.push_back({when, event_kind::arrival, devices.back().device, initial});
  }
  _devices = std::move(devices);
  return changes;
}

}  // namespace yusb::tool
