// The state that bus_settle waits for: whether the library has handled all changes of its bus.
#ifndef YORVAN_PORT_BUS_SETTLE_H_
#define YORVAN_PORT_BUS_SETTLE_H_

namespace yusb::port {

// To call when a change must be handled, or when no session exists. May be called from any thread.
void mark_busy();

// To call when all changes are handled. May be called from any thread.
void mark_idle();

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_SETTLE_H_
