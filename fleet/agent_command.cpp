#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include <yusb.h>
#include <yusb_bus.h>

#include "agent.h"
#include "bus_source.h"
#include "commands.h"
#include "service.h"

namespace yusb::fleet {

int run_agent(loop& loop, const options& chosen) {
  if (!bus_present()) {
    complain("this system has no USB bus");
    return exit_failure;
  }
  if (chosen.host.empty()) {
    complain("this system has no host name; --host NAME gives one");
    return exit_usage;
  }
  std::function<void()> stop;
  on_termination(loop, [&stop] { stop(); });  // before the library starts its thread
  global_initialize();
  int status = exit_ok;
  bus_source source(chosen.filter, [&] {
    loop.post([&] {
      complain("the USB bus cannot be read");
      status = exit_failure;
      loop.stop();
    });
  });
  agent_options options;
  options.connection = chosen.connection;
  options.prefix = chosen.prefix;
  options.host = chosen.host;
  options.machine = machine_name();
  options.version = YUSB_VERSION;
  options.heartbeat = chosen.heartbeat;
  agent agent(loop, std::move(options), source,
              {[](const std::string& line) {
                 complain(line);
                 notify_service("STATUS=" + line);
               },
               [&](agent_end why, const std::string& reason) {
                 if (!reason.empty()) complain(reason);
                 status = why == agent_end::name_taken ? exit_failure : exit_ok;
                 loop.stop();
               }});
  stop = [&agent] {
    notify_service("STOPPING=1");
    agent.stop();
  };
  const auto watchdog = watchdog_limit();
  std::function<void()> pat = [&] {
    notify_service("WATCHDOG=1");
    loop.after(*watchdog / 3, pat);
  };
  if (watchdog) pat();
  agent.start();
  notify_service("READY=1");
  loop.run();
  // The destructor of the source would wait while a device is being read.
  std::_Exit(status);
}

}  // namespace yusb::fleet
