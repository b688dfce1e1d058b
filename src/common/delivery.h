// The record behind a client's handle.
#ifndef YUSB_COMMON_DELIVERY_H_
#define YUSB_COMMON_DELIVERY_H_

#include <set>

#include <yusb.h>

#include "common/mutex.h"

struct _yusb_context {
  std::set<yusb_device_event_interface*> interfaces
      GUARDED_BY(mutex);  // the client's; called in ascending order of address
  yusb::Mutex mutex;
};

namespace yusb {

// common_notify_device_append or common_notify_device_remove.
using notify_function = void (*)(_yusb_context*, const YUsbInfoDevice&) noexcept;

}  // namespace yusb

#endif  // YUSB_COMMON_DELIVERY_H_
