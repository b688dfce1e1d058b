#include "common/delivery.h"

#include "common/reentry.h"

namespace yusb {

void common_notify_handle(_yusb_context* ctx, const YUsbInfoDevice& device,
                          _yusb_device_event event) noexcept {
  if (refused()) return;
  const MutexLock lock(&ctx->mutex);
  const client_code running;
  for (yusb_device_event_interface* iface : ctx->interfaces) {
    if (iface != nullptr) iface->on_device_event(device, event);
  }
}

void common_notify_device_append(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept {
  common_notify_handle(ctx, device, YUSB_DEVICE_EVENT_APPEND);
}

void common_notify_device_remove(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept {
  common_notify_handle(ctx, device, YUSB_DEVICE_EVENT_REMOVE);
}

}  // namespace yusb
