// The bus that feeds the library on a host without IOKit: what a program may want to know of it.
#ifndef YUSB_BUS_H_
#define YUSB_BUS_H_

#include <chrono>

#if defined(__GNUC__)
#define YUSB_BUS_EXPORT __attribute__((visibility("default")))
#else
#define YUSB_BUS_EXPORT
#endif

namespace yusb {

// True if the host has a USB bus that can be watched. From any thread.
YUSB_BUS_EXPORT bool bus_present();

// Waits until the library has handled everything the bus has told it: after yusb::global_initialize, until
// every device attached then is listed and delivered; on a simulated bus, every change made before this call
// too. While others go on changing the bus that moment may not
// come. False when `limit` has passed, which is what happens where the library is not initialised. From any
// thread but a handler.
YUSB_BUS_EXPORT bool bus_settle(std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace yusb

#endif  // YUSB_BUS_H_
