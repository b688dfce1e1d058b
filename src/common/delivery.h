// A context, and the delivery of events to its interfaces.
#ifndef YUSB_COMMON_DELIVERY_H_
#define YUSB_COMMON_DELIVERY_H_

#include <set>

#include <yusb.h>

#include "common/mutex.h"
#include "common/reentry.h"

struct _yusb_context {
  // Owned by the client; called in ascending order of address.
  std::set<yusb_device_event_interface*> interfaces GUARDED_BY(mutex);
  yusb::Mutex mutex;
};

namespace yusb {

// Calls every interface of one context, in ascending order of address, under the context's lock. `running` is
// the caller's mark on this thread; one mark serves all contexts.
void deliver(const callback_scope& running, _yusb_context* context, const YUsbInfoDevice& device,
             _yusb_device_event event);

}  // namespace yusb

#endif  // YUSB_COMMON_DELIVERY_H_
