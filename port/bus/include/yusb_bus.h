// libYorvanUsbBus: what a program may want to know of the bus that feeds the library.
#ifndef YUSB_BUS_H_
#define YUSB_BUS_H_

#if __cplusplus < 201703L
#error "libYorvanUsb needs C++17 or later: compile with -std=c++17"
#endif

#include <chrono>

#if defined(__GNUC__) && !defined(YUSB_STATIC)
#define YUSB_BUS_EXPORT __attribute__((visibility("default")))
#else
#define YUSB_BUS_EXPORT
#endif

namespace yusb {

// True if the host has a USB bus that can be watched; on a Mac, if IOKit can be asked for USB devices. From
// any thread.
YUSB_BUS_EXPORT bool bus_present();

// Waits until the library has handled everything the bus has told it: after yusb::global_initialize, until
// every device attached then is listed and delivered; on a simulated bus, every change made before this call
// too. While others go on changing the bus that moment may not come. False when `limit` has passed, which is
// what happens where the library is not initialised. From any thread but a handler.
//
// On a Mac it waits until every device that IOKit has, but root hubs, is listed at its location and
// delivered. A removal may still be under way. It is false after `limit` also while a device is attached that
// the library cannot read, of which the log has a line, and at once where the library is not initialised. It
// opens a context and releases it: hold no lock that a handler takes.
YUSB_BUS_EXPORT bool bus_settle(std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace yusb

#endif  // YUSB_BUS_H_
