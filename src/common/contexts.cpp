// Opening and closing contexts.
#include <new>

#include "common/delivery.h"
#include "common/reentry.h"
#include "common/state.h"

namespace yusb {

namespace {

void replay(notify_function notify, _yusb_context* context) REQUIRES(_global_context_mutex) {
  if (!has_devices()) return;
  const MutexLock devices(_global_device_mutex);
  for (const YUsbInfoDevice& listed : *_global_device_array) notify(context, listed);
}

}  // namespace

bool common_object_append(_yusb_context* ctx) noexcept {
  if (refused() || !has_contexts() || ctx == nullptr) return false;
  const MutexLock contexts(_global_context_mutex);
  if (!_global_context_array->insert(ctx).second) return false;
  replay(common_notify_device_append, ctx);
  return true;
}

bool common_object_remove(_yusb_context* ctx) noexcept {
  if (refused() || !has_contexts() || ctx == nullptr) return false;
  const MutexLock contexts(_global_context_mutex);
  if (_global_context_array->erase(ctx) == 0) return false;
  replay(common_notify_device_remove, ctx);
  return true;
}

bool context_create(_yusb_context** out) noexcept {
  if (out == nullptr || refused()) return false;
  *out = new (std::nothrow) _yusb_context();
  if (*out != nullptr) common_object_append(*out);
  return true;
}

bool context_release(_yusb_context* ctx) noexcept {
  if (ctx == nullptr || refused()) return false;
  common_object_remove(ctx);
  delete ctx;
  return true;
}

}  // namespace yusb
