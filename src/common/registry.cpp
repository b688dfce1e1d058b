// The device list. Each arrival and removal changes it here, is logged, and is delivered to every open
// context.
#include "common/delivery.h"
#include "common/log.h"
#include "common/reentry.h"
#include "common/state.h"

namespace yusb {

namespace {

void deliver_everywhere(const callback_scope& running, const YUsbInfoDevice& record, _yusb_device_event event)
    REQUIRES(_global_context_mutex) {
  for (_yusb_context* context : *_global_context_array) deliver(running, context, record, event);
}

template <typename Matches>
device_list::iterator find_listed(Matches matches) REQUIRES(_global_device_mutex) {
  auto at = _global_device_array->begin();
  while (at != _global_device_array->end() && !matches(*at)) ++at;
  return at;
}

auto same_device(const YUsbInfoDevice& record) {
  return [&record](const YUsbInfoDevice& listed) {
    return listed.instancePath() == record.instancePath() || listed.location() == record.location();
  };
}

using record_key = const YString& (YUsbInfoDevice::*)() const;

void remove_by_key(const callback_scope& running, record_key key, const YString& value) {
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  YUsbInfoDevice removed;
  const auto found = find_listed([&](const YUsbInfoDevice& listed) { return (listed.*key)() == value; });
  if (found != _global_device_array->end()) {
    removed = *found;
    _global_device_array->erase(found);
  }
  YLog::output(log_information, "---------- DEVICE REMOVE ----------");
  YLog::output(log_information, "DEVICE Location\t\t: %s", removed.location().data());
  deliver_everywhere(running, removed, YUSB_DEVICE_EVENT_REMOVE);
}

}  // namespace

void common_device_append(const YUsbInfoDevice& record) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || !device_list_exists()) return;
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  _global_device_array->push_back(record);
  YLog::output(log_information, "---------- DEVICE APPEND ----------");
  common_device_printf(record);
  deliver_everywhere(running, record, YUSB_DEVICE_EVENT_APPEND);
}

void common_device_remove(const YUsbInfoDevice& record) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || !device_list_exists()) return;
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  const auto found = find_listed(same_device(record));
  if (found != _global_device_array->end()) _global_device_array->erase(found);
  deliver_everywhere(running, record, YUSB_DEVICE_EVENT_REMOVE);
}

void common_device_remove_from_instance_path(const YString& path) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || !device_list_exists()) return;
  remove_by_key(running, &YUsbInfoDevice::instancePath, path);
}

void common_device_remove_from_location(const YString& location) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || !device_list_exists()) return;
  remove_by_key(running, &YUsbInfoDevice::location, location);
}

bool common_device_is_exist(const YUsbInfoDevice& record) noexcept {
  const callback_scope running;  // the record may be of a derived class
  if (running.reject_reentry() || !device_list_exists()) return false;
  const MutexLock devices(_global_device_mutex);
  return find_listed(same_device(record)) != _global_device_array->end();
}

void common_device_traverse(const device_visitor& visitor) noexcept {
  if (reject_reentry() || !device_list_exists()) return;
  device_list snapshot;
  {
    const MutexLock devices(_global_device_mutex);
    snapshot = *_global_device_array;
  }
  for (const YUsbInfoDevice& record : snapshot) {
    if (!visitor(record)) break;
  }
}

void common_device_printf(const YUsbInfoDevice& record) noexcept {
  const callback_scope sink;
  YLog::output(log_information, "DEVICE Vendor ID\t\t: 0x%04X", record.vendorID());
  YLog::output(log_information, "DEVICE Product ID\t\t: 0x%04X", record.productID());
  YLog::output(log_information, "DEVICE Revised ID\t\t: 0x%04X", record.revisedID());
  YLog::output(log_information, "DEVICE Factory\t\t: %s", record.factory().data());
  YLog::output(log_information, "DEVICE Serial Number\t: %s", record.serialNumber().data());
  YLog::output(log_information, "DEVICE Location\t\t: %s", record.location().data());
  YLog::output(log_information, "DEVICE InstancePath\t: %s", record.instancePath().data());
  YLog::output(log_information, "DEVICE Describe\t\t: %s", record.describe().data());
}

bool device_traverse(_yusb_context* /*ctx*/, const device_visitor& visitor) noexcept {
  if (!visitor || reject_reentry() || !device_list_exists()) return false;
  common_device_traverse(visitor);
  return true;
}

bool device_is_exist(_yusb_context* /*ctx*/, const YUsbInfoDevice& device) noexcept {
  return common_device_is_exist(device);
}

}  // namespace yusb
