#ifndef YUSB_TOOLS_PICTURE_H_
#define YUSB_TOOLS_PICTURE_H_

#include <vector>

#include <yusb_watcher.h>

#include "line.h"

namespace yusb::tool {

// What a watcher's queue has told of, so that a resync becomes the arrivals and removals that lead to it.
class picture {
 public:
  // The changes that an event of the queue stands for, with the time `when`; of a resync first the removals,
  // latest arrival first.
  std::vector<event> apply(const watch_event& told, time_point when);

  bool empty() const { return _devices.empty(); }

 private:
  std::vector<YUsbInfoDevice> _devices;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_PICTURE_H_
