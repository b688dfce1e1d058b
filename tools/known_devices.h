#ifndef YUSB_TOOLS_KNOWN_DEVICES_H_
#define YUSB_TOOLS_KNOWN_DEVICES_H_

#include <vector>

#include <yusb_watcher.h>

#include "format/event_format.h"

namespace yusb::tool {

// The devices that a watcher's queue has reported, to translate a resync into arrivals and removals.
class known_devices {
 public:
  // The changes that an event of the queue stands for, each with the time `when`. A resync gives its removals
  // first, the device that arrived last before all others.
  std::vector<format::event> apply(const watch_event& event, format::time_point when);

  bool empty() const { return _devices.empty(); }

 private:
  std::vector<YUsbInfoDevice> _devices;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_KNOWN_DEVICES_H_
