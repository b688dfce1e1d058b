// The record behind a client's handle, and how events reach its interfaces.
#ifndef YUSB_COMMON_DELIVERY_H_
#define YUSB_COMMON_DELIVERY_H_

#include <set>

#include <yusb.h>

#include "common/mutex.h"
#include "common/reentry.h"

struct _yusb_context {
  std::set<yusb_device_event_interface*> interfaces
      GUARDED_BY(mutex);  // the client's; called in ascending order of address
  yusb::Mutex mutex;
};

namespace yusb {

// Calls every interface of one context, in ascending order of address, under the context's lock. The caller
// has marked the thread: one mark does for all contexts.
void deliver(const callback_scope& running, _yusb_context* context, const YUsbInfoDevice& device,
             _yusb_device_event event);

}  // namespace yusb

#endif  // YUSB_COMMON_DELIVERY_H_
