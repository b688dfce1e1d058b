// Registering event interfaces on a context.
#include "common/delivery.h"
#include "common/reentry.h"
#include "common/state.h"

namespace yusb {

namespace {

// No lock is held, so the handler may call back into the library.
void replay(yusb_device_event_interface* iface, _yusb_device_event event) {
  common_device_traverse([iface, event](const YUsbInfoDevice& listed) {
    iface->on_device_event(listed, event);
    return true;
  });
}

}  // namespace

bool common_notify_append(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept {
  if (reject_reentry() || !device_list_exists()) return false;
  {
    const MutexLock lock(&ctx->mutex);
    if (!ctx->interfaces.insert(iface).second) return false;
  }
  replay(iface, YUSB_DEVICE_EVENT_APPEND);
  return true;
}

bool common_notify_remove(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept {
  if (reject_reentry() || !device_list_exists()) return false;
  {
    const MutexLock lock(&ctx->mutex);
    if (ctx->interfaces.erase(iface) == 0) return false;
  }
  replay(iface, YUSB_DEVICE_EVENT_REMOVE);
  return true;
}

bool context_notify_object_append(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept {
  if (ctx == nullptr || iface == nullptr) return false;
  return common_notify_append(ctx, iface);
}

bool context_notify_object_remove(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept {
  if (ctx == nullptr || iface == nullptr) return false;
  return common_notify_remove(ctx, iface);
}

}  // namespace yusb
