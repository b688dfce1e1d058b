// The device list: every arrival and removal passes through here, is reported to the log, and goes out
// to every open context.
#include <algorithm>

#include "common/delivery.h"
#include "common/log.h"
#include "common/reentry.h"
#include "common/state.h"

namespace yusb {

namespace {

void notify_every_context(notify_function notify, const YUsbInfoDevice& record)
    REQUIRES(_global_context_mutex) {
  for (_yusb_context* context : *_global_context_array) notify(context, record);
}

auto same_device(const YUsbInfoDevice& record) {
  return [&record](const YUsbInfoDevice& listed) {
    return listed.instancePath() == record.instancePath() || listed.location() == record.location();
  };
}

using record_key = const YString& (YUsbInfoDevice::*)() const;

void remove_by_key(record_key key, const YString& value) {
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  YUsbInfoDevice removed;
  const auto found = std::find_if(_global_device_array->begin(), _global_device_array->end(),
                                  [&](const YUsbInfoDevice& listed) { return (listed.*key)() == value; });
  if (found != _global_device_array->end()) {
    removed = *found;
    _global_device_array->erase(found);
  }
  {
    const client_code sink;
    YLog::output(log_information, "---------- DEVICE REMOVE ----------");
    YLog::output(log_information, "DEVICE Location\t\t: %s", removed.location().data());
  }
  notify_every_context(common_notify_device_remove, removed);
}

}  // namespace

void common_device_append(const YUsbInfoDevice& record) noexcept {
  if (refused() || !has_contexts() || !has_devices()) return;
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  _global_device_array->push_back(record);
  {
    const client_code sink;
    YLog::output(log_information, "---------- DEVICE APPEND ----------");
    common_device_printf(record);
  }
  notify_every_context(common_notify_device_append, record);
}

void common_device_remove(const YUsbInfoDevice& record) noexcept {
  if (refused() || !has_contexts() || !has_devices()) return;
  const MutexLock contexts(_global_context_mutex);
  const MutexLock devices(_global_device_mutex);
  const auto found =
      std::find_if(_global_device_array->begin(), _global_device_array->end(), same_device(record));
  if (found != _global_device_array->end()) _global_device_array->erase(found);
  notify_every_context(common_notify_device_remove, record);
}

void common_device_remove_from_instance_path(const YString& path) noexcept {
  if (refused() || !has_contexts() || !has_devices()) return;
  remove_by_key(&YUsbInfoDevice::instancePath, path);
}

void common_device_remove_from_location(const YString& location) noexcept {
  if (refused() || !has_contexts() || !has_devices()) return;
  remove_by_key(&YUsbInfoDevice::location, location);
}

bool common_device_is_exist(const YUsbInfoDevice& record) noexcept {
  if (refused() || !has_devices()) return false;
  const MutexLock devices(_global_device_mutex);
  return std::any_of(_global_device_array->begin(), _global_device_array->end(), same_device(record));
}

void common_device_traverse(const device_visitor& visitor) noexcept {
  if (refused() || !has_devices()) return;
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
  const client_code sink;
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
  if (!visitor || refused() || !has_devices()) return false;
  common_device_traverse(visitor);
  return true;
}

bool device_is_exist(_yusb_context* /*ctx*/, const YUsbInfoDevice& device) noexcept {
  return common_device_is_exist(device);
}

}  // namespace yusb
