// The kernel's uevent socket.
#ifndef YORVAN_PORT_BUS_LINUX_UEVENTS_H_
#define YORVAN_PORT_BUS_LINUX_UEVENTS_H_

#include "bus/linux_descriptor.h"
#include "bus/uevent.h"

namespace yusb::port {

// Whether the kernel sends its uevents to the calling thread's network namespace.
enum class broadcast { yes, no, unknown };
broadcast kernel_broadcasts();

class uevent_socket {
 public:
  // Hears what happens from now on. False, with errno set, if there is no such socket to be had.
  bool open();

  int number() const { return _socket.number(); }

  enum class received {
    device,   // *event tells of a USB device
    other,    // the kernel spoke of something else
    lost,     // the queue has overflowed; what it still holds is older than the loss
    nothing,  // for now
  };

  // Never waits. What the kernel did not send itself is passed over.
  received receive(uevent* event);

 private:
  descriptor _socket;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_LINUX_UEVENTS_H_
