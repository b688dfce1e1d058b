// What the program has from the service manager, and says to it.
#ifndef YUSB_FLEET_SERVICE_H_
#define YUSB_FLEET_SERVICE_H_

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "loop.h"

namespace yusb::fleet {

// sd_notify(3)'s protocol. Does nothing without a service manager that asks for it.
void notify_service(const std::string& state);

// How long the service manager lets a service be silent; empty if it does not mind.
std::optional<std::chrono::milliseconds> watchdog_limit();

// Calls `stop` on SIGINT or SIGTERM, unless the program was started with that signal ignored. Blocks both for
// the threads that are started later; call it first. Throws std::system_error.
void on_termination(loop& loop, std::function<void()> stop);

// 16 hexadecimal digits that name this machine, made from /etc/machine-id or else from the host's name, which
// they do not reveal.
std::string machine_name();

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_SERVICE_H_
