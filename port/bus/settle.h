// Whether the library has handled everything that its bus has told it.
#ifndef YORVAN_PORT_BUS_SETTLE_H_
#define YORVAN_PORT_BUS_SETTLE_H_

namespace yusb::port {

// There is something to handle, or nobody to handle it. From any thread.
void mark_busy();

// Everything is handled. From any thread.
void mark_idle();

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_SETTLE_H_
