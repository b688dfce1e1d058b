#include "common/delivery.h"

namespace yusb {

void deliver(const callback_scope& /*running*/, _yusb_context* context, const YUsbInfoDevice& device,
             _yusb_device_event event) {
  const MutexLock lock(&context->mutex);
  for (yusb_device_event_interface* iface : context->interfaces) {
    if (iface != nullptr) iface->on_device_event(device, event);
  }
}

void common_notify_handle(_yusb_context* ctx, const YUsbInfoDevice& device,
                          _yusb_device_event event) noexcept {
  const callback_scope running;
  if (!running.reject_reentry()) deliver(running, ctx, device, event);
}

void common_notify_device_append(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept {
  common_notify_handle(ctx, device, YUSB_DEVICE_EVENT_APPEND);
}

void common_notify_device_remove(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept {
  common_notify_handle(ctx, device, YUSB_DEVICE_EVENT_REMOVE);
}

}  // namespace yusb
