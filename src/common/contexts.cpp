// Opening and closing contexts.
#include <new>

#include "common/delivery.h"
#include "common/reentry.h"
#include "common/state.h"

namespace yusb {

namespace {

void replay(const callback_scope& running, _yusb_context* context, _yusb_device_event event)
    REQUIRES(_global_context_mutex) {
  if (!device_list_exists()) return;
  const MutexLock devices(_global_device_mutex);
  for (const YUsbInfoDevice& listed : *_global_device_array) deliver(running, context, listed, event);
}

}  // namespace

bool common_object_append(_yusb_context* ctx) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || ctx == nullptr) return false;
  const MutexLock contexts(_global_context_mutex);
  if (!_global_context_array->insert(ctx).second) return false;
  replay(running, ctx, YUSB_DEVICE_EVENT_APPEND);
  return true;
}

bool common_object_remove(_yusb_context* ctx) noexcept {
  const callback_scope running;
  if (running.reject_reentry() || !contexts_exist() || ctx == nullptr) return false;
  const MutexLock contexts(_global_context_mutex);
  if (_global_context_array->erase(ctx) == 0) return false;
  replay(running, ctx, YUSB_DEVICE_EVENT_REMOVE);
  return true;
}

bool context_create(_yusb_context** out) noexcept {
  if (out == nullptr || reject_reentry()) return false;
  *out = new (std::nothrow) _yusb_context();
  if (*out != nullptr) common_object_append(*out);
  return true;
}

bool context_release(_yusb_context* ctx) noexcept {
  if (ctx == nullptr || reject_reentry()) return false;
  common_object_remove(ctx);
  delete ctx;
  return true;
}

}  // namespace yusb
