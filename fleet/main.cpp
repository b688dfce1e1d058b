// The program yusb-fleet: the USB devices of many hosts over MQTT.
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include <YorvanCore/YLog.h>

#include "commands.h"
#include "options.h"

namespace {

using namespace yusb::fleet;

int run_program(int argc, char** argv) {
  const command_line given = parse_command_line(argc, argv);
  if (!given.run) {
    if (given.status != exit_ok) {
      complain(given.text);
      complain("try 'yusb-fleet --help'");
    }
    if (given.status == exit_ok) std::fwrite(given.text.data(), 1, given.text.size(), stdout);
    return given.status;
  }
  YLog::setThreshold(static_cast<EYORVAN_LOG_LEVEL>(EYORVAN_LOG_LEVEL_FATAL + 1));
  switch (given.run->chosen) {
    case command::agent:
      return run_agent(*given.run);
    case command::list:
      return run_list(*given.run);
    case command::watch:
      return run_watch(*given.run);
    case command::wait:
      return run_wait(*given.run);
    case command::forget:
      return run_forget(*given.run);
    case command::metrics:
      return run_metrics(*given.run);
  }
  return exit_usage;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // writing to a closed connection reports EPIPE instead
  try {
    return run_program(argc, argv);
  } catch (const std::exception& failure) {
    complain(failure.what());
    return exit_failure;
  }
}
