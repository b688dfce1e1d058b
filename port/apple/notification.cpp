// Notification ports, matching notifications, iterators and services.
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "apple/call_hook.h"
#include "apple/core_foundation.h"
#include "apple/misuse.h"
#include "apple/service.h"
#include "bus/bus.h"

using namespace yusb::port;

struct __CFDictionary : cf_object {
  explicit __CFDictionary(const char* name) : class_name(name) {}
  const std::string class_name;
  instance_counter counter{object_kind::matching_dictionary};
};

namespace {

struct port_source;

// One registration. Used only on its port's thread. It ends when its handle is released.
struct notification : io_object {
  notification(bool arrivals, IOServiceMatchingCallback handler, void* reference)
      : wants_arrivals(arrivals), callback(handler), refcon(reference) {}
  const bool wants_arrivals;
  const IOServiceMatchingCallback callback;
  void* const refcon;
  io_iterator_t handle = IO_OBJECT_NULL;
  bool armed = false;
  // Not null until the devices that were attached at the registration have been taken from it.
  port_source* initial = nullptr;
  std::deque<std::shared_ptr<device>> pending;
  instance_counter counter{object_kind::iterator};
};

// Terminates the process on an exception: it must not unwind through Apple's run loop, which is written in C.
void call(const notification& wanted) {
  try {
    wanted.callback(wanted.refcon, wanted.handle);
  } catch (...) {
    misuse("an exception left a callback of IOServiceAddMatchingNotification()");
  }
}

struct port_source : __CFRunLoopSource {
  explicit port_source(std::unique_ptr<session> watched) : watch(std::move(watched)) {}

  const std::unique_ptr<session> watch;
  std::vector<std::weak_ptr<notification>> notifications;
  // A removal that the bus reported among the initial devices; it is handled after them.
  std::optional<change> held;

  std::array<int, 2> poll_fds() const override { return watch->poll_fds(); }
  void idle() override { watch->idle(); }

  std::optional<change> take() {
    return held.has_value() ? std::exchange(held, std::nullopt) : watch->next();
  }

  // Handles one change per call, so that handlers receive changes in the order in which they happened.
  bool perform() override {
    const std::optional<change> next = take();
    if (!next.has_value()) return false;
    const auto registered = notifications;  // a handler may register more
    for (const auto& weak : registered) {
      const auto wanted = weak.lock();
      if (wanted == nullptr || wanted->wants_arrivals != next->arrived) continue;
      wanted->pending.push_back(next->device);
      if (std::exchange(wanted->armed, false)) call(*wanted);
    }
    return true;
  }

  // Returns the next device that was attached when a handler was registered for arrivals; null after the
  // last. Each is read when it is asked for, so that one that does not answer does not hold up those before
  // it.
  std::shared_ptr<device> next_attached() {
    if (held.has_value()) return nullptr;
    std::optional<change> next = watch->next();
    if (!next.has_value()) return nullptr;
    if (next->arrived) return std::move(next->device);
    held = std::move(next);
    return nullptr;
  }
};

}  // namespace

struct IONotificationPort {
  port_source* source;
  instance_counter counter{object_kind::notification_port};
};

IONotificationPortRef IONotificationPortCreate(mach_port_t /*mainPort*/) {
  if (!before_call("IONotificationPortCreate")) return nullptr;
  std::unique_ptr<session> watch = current_bus().open();
  if (watch == nullptr) return nullptr;
  return new IONotificationPort{new port_source(std::move(watch))};
}

void IONotificationPortDestroy(IONotificationPortRef notify) {
  if (notify == nullptr) misuse("IONotificationPortDestroy() called with null");
  for (const auto& weak : notify->source->notifications) {
    const auto registered = weak.lock();  // an iterator outlives its port
    if (registered == nullptr || registered->initial == nullptr) continue;
    while (auto device = registered->initial->next_attached())
      registered->pending.push_back(std::move(device));
    registered->initial = nullptr;
  }
  invalidate(notify->source);
  CFRelease(notify->source);
  delete notify;
}

CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify) {
  if (notify == nullptr) misuse("IONotificationPortGetRunLoopSource() called with null");
  return before_call("IONotificationPortGetRunLoopSource") ? notify->source : nullptr;
}

CFMutableDictionaryRef IOServiceMatching(const char* name) {
  return before_call("IOServiceMatching") ? new __CFDictionary(name) : nullptr;
}

kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef notifyPort,
                                               const io_name_t notificationType, CFDictionaryRef matching,
                                               IOServiceMatchingCallback callback, void* refCon,
                                               io_iterator_t* iterator) {
  const bool permitted = before_call("IOServiceAddMatchingNotification");
  if (notifyPort == nullptr) misuse("IOServiceAddMatchingNotification() called with a null port");
  if (matching == nullptr) return status_bad_argument;
  const bool matches = matching->class_name == "IOUSBDevice";
  CFRelease(matching);
  if (!permitted) return status_error;

  const bool arrivals = std::strcmp(notificationType, kIOFirstMatchNotification) == 0;
  if (!arrivals && std::strcmp(notificationType, kIOTerminatedNotification) != 0) return status_unsupported;
  const auto made = std::make_shared<notification>(arrivals, callback, refCon);
  if (matches) {
    if (arrivals) made->initial = notifyPort->source;
    notifyPort->source->notifications.push_back(made);
  }
  made->handle = make_handle(made);
  *iterator = made->handle;
  return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
  const auto found = find<notification>(iterator);
  if (found == nullptr) return IO_OBJECT_NULL;
  if (found->pending.empty() && found->initial != nullptr) {
    if (auto device = found->initial->next_attached()) {
      found->pending.push_back(std::move(device));
    } else {
      found->initial = nullptr;
    }
  }
  if (found->pending.empty()) {
    found->armed = true;
    return IO_OBJECT_NULL;
  }
  const auto next = std::make_shared<service>(std::move(found->pending.front()));
  found->pending.pop_front();
  return make_handle(next);
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef /*allocator*/, IOOptionBits /*options*/) {
  before_call("IORegistryEntryCreateCFProperty");
  const auto found = find<service>(entry);
  if (found == nullptr || key != CFSTR("locationID")) return nullptr;
  const std::optional<std::uint32_t> location = found->attached->registry_location();
  return location.has_value() ? new __CFNumber(static_cast<std::int32_t>(*location)) : nullptr;
}
