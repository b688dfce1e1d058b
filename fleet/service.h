// The interface to the service manager, the signals that end the program, and the machine's ID.
#ifndef YUSB_FLEET_SERVICE_H_
#define YUSB_FLEET_SERVICE_H_

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "loop.h"

namespace yusb::fleet {

// Sends a state to the service manager, as sd_notify(3) does. Does nothing without one.
void notify_service(const std::string& state);

// The longest time that the service manager allows between two "WATCHDOG=1"; empty if it has no watchdog.
std::optional<std::chrono::milliseconds> watchdog_limit();

// Calls `stop` on SIGINT or SIGTERM, unless the program was started with that signal ignored. Blocks both for
// the threads that are started later; call it first. Returns a descriptor that is readable from a signal
// until `stop` is called. Throws std::system_error.
int on_termination(loop& loop, std::function<void()> stop);

// 16 hexadecimal digits that name this machine, made from /etc/machine-id or else from the host's name, which
// they do not reveal.
std::string machine_name();

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_SERVICE_H_
