// libYorvanUsbBus on macOS, where the bus is IOKit's.
#include <yusb_bus.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>
#include <utility>

#include <yusb.h>

#include "macos/registry.h"

namespace {

using yusb::port::find_devices;
using yusb::port::location_of;
using yusb::port::number_of;

// Programs may not be allowed to read root hubs, so these may never be listed. Their location has no port.
bool is_root_hub(UInt32 location) { return (location & 0x00FFFFFF) == 0; }

// The library lists no device whose vendor or product ID is 0.
bool is_anonymous(io_service_t device) {
  return number_of(device, CFSTR("idVendor")) == 0u || number_of(device, CFSTR("idProduct")) == 0u;
}

bool is_listed(UInt32 location) {
  try {
    const YString text = YString::format("0x%X", location);
    YUsbInfoDevice device;
    device.setLocation(text);
    device.setInstancePath(text);
    return yusb::device_is_exist(nullptr, device);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool all_are_listed() {
  io_iterator_t found = IO_OBJECT_NULL;
  if (!find_devices(&found)) return false;
  bool listed = true;
  while (const io_service_t device = IOIteratorNext(found)) {
    const UInt32 location = location_of(device);
    listed = listed && (is_root_hub(location) || is_anonymous(device) || is_listed(location));
    IOObjectRelease(device);
  }
  if (found != IO_OBJECT_NULL) IOObjectRelease(found);
  return listed;
}

// Waits for events from the library.
class listener final : public yusb_device_event_interface {
 public:
  listener() {
    if (yusb::context_create(&_context) && _context != nullptr)
      _listens = yusb::context_notify_object_append(_context, this);
  }
  ~listener() override { yusb::context_release(_context); }
  listener(const listener&) = delete;
  listener& operator=(const listener&) = delete;

  bool listens() const { return _listens; }

  // False if there is no event within the limit. An event since the last call counts.
  bool wait(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(_mutex);
    return _changed.wait_for(lock, limit, [this] { return std::exchange(_heard, false); });
  }

  void on_device_event(const YUsbInfoDevice& /*device*/, _yusb_device_event /*event*/) override {
    const std::lock_guard<std::mutex> lock(_mutex);
    _heard = true;
    _changed.notify_all();
  }

 private:
  _yusb_context* _context = nullptr;
  bool _listens = false;
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _heard = false;  // under _mutex
};

}  // namespace

bool yusb::bus_present() {
  io_iterator_t found = IO_OBJECT_NULL;
  if (!find_devices(&found)) return false;
  if (found != IO_OBJECT_NULL) IOObjectRelease(found);
  return true;
}

bool yusb::bus_settle(std::chrono::milliseconds limit) {
  using clock = std::chrono::steady_clock;
  limit = std::clamp<std::chrono::milliseconds>(limit, limit.zero(), std::chrono::hours(24 * 365));
  const auto start = clock::now();
  listener library;  // registered before the first comparison, so that a later arrival is an event
  if (!library.listens()) return false;
  while (!all_are_listed()) {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - start);
    if (passed >= limit || !library.wait(limit - passed)) return false;
  }
  return true;
}
