// The kernel's uevent socket.
#ifndef YORVAN_PORT_LINUX_UEVENT_SOCKET_H_
#define YORVAN_PORT_LINUX_UEVENT_SOCKET_H_

#include "linux/uevent.h"
#include "linux/unique_fd.h"

namespace yusb::port {

// Whether the kernel sends its uevents to the calling thread's network namespace.
enum class netns_hears { yes, no, unknown };
netns_hears netns_hears_uevents();

class uevent_socket {
 public:
  // Hears what happens from now on. False, with errno set, if there is no such socket to be had.
  bool open();

  int fd() const { return _socket.get(); }

  enum class received {
    device,   // *event tells of a USB device
    other,    // the kernel spoke of something else
    lost,     // the queue has overflowed; what it still holds is older than the loss
    nothing,  // for now
  };

  // Never waits. What the kernel did not send itself is passed over.
  received receive(uevent* event);

 private:
  unique_fd _socket;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UEVENT_SOCKET_H_
