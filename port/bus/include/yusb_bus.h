// libYorvanUsbBus: the bus that the library watches.
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

// True if the host has a USB bus that can be watched; on macOS, if IOKit can be queried for USB devices. May
// be called from any thread.
YUSB_BUS_EXPORT bool bus_present();

// Waits until the library has handled every event that the bus has reported. After yusb::global_initialize,
// every device attached at that time is then listed and delivered; on a simulated bus, so is every change
// made before this call. If the bus keeps changing, that may never happen. `limit` is how long to
// wait at most. False if the limit has passed; it always passes if the library is not initialised. May be
// called from any thread, but not in a handler.
//
// On macOS it waits until every device that IOKit reports, except root hubs, is listed at its location and
// delivered. A removal may still be pending. It also returns false after `limit` if a device is attached that
// the library cannot read (the log has a line about it), and immediately if the library is not initialised.
// It opens and releases a context: do not hold a lock that a handler takes.
YUSB_BUS_EXPORT bool bus_settle(std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace yusb

#endif  // YUSB_BUS_H_
