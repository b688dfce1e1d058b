// The kernel's uevent socket.
#ifndef YORVAN_PORT_LINUX_UEVENT_SOCKET_H_
#define YORVAN_PORT_LINUX_UEVENT_SOCKET_H_

#include "linux/uevent.h"
#include "linux/unique_fd.h"

namespace yusb::port {

// Says whether the kernel sends uevents to the calling thread's network namespace.
enum class netns_hears { yes, no, unknown };
netns_hears netns_hears_uevents();

class uevent_socket {
 public:
  // Starts receiving. False, with errno set, if the socket cannot be opened.
  bool open();

  int fd() const { return _socket.get(); }

  enum class received {
    device,   // *event is about a USB device
    other,    // a uevent about something else
    lost,     // the receive buffer has overflowed; the uevents still in it are older than the loss
    nothing,  // no uevent at present
  };

  // Never waits. Skips messages that are not from the kernel.
  received receive(uevent* event);

 private:
  unique_fd _socket;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_UEVENT_SOCKET_H_
