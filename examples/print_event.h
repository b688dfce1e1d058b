// Prints an event of a watch queue: a line for a device that was attached (+) or detached (-), or, after
// events were dropped, a line for each device that is attached now (=).
#ifndef PRINT_EVENT_H_
#define PRINT_EVENT_H_

#include <yusb_watcher.h>

#include <cstdio>

inline void print_device(char sign, const YUsbInfoDevice& device) {
  std::printf("%c %s %04x:%04x\n", sign, device.location().data(), device.vendorID(), device.productID());
}

inline void print_event(const yusb::watch_event& event) {
  switch (event.kind) {
    case yusb::watch_kind::arrival:
      print_device('+', event.device);
      break;
    case yusb::watch_kind::removal:
      print_device('-', event.device);
      break;
    case yusb::watch_kind::resync:
      for (const YUsbInfoDevice& device : event.devices) print_device('=', device);
      break;
  }
  std::fflush(stdout);
}

#endif  // PRINT_EVENT_H_
