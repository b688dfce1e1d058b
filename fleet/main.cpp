// The program yusb-fleet: the USB devices of many hosts over MQTT.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <YorvanCore/YLog.h>

#include "commands.h"
#include "options.h"
#include "session.h"

namespace {

using namespace yusb::fleet;

// Else a file or a connection could get the number of a standard stream that the caller has closed.
void occupy_standard_descriptors() {
  for (int each = STDIN_FILENO; each <= STDERR_FILENO; ++each) {
    // Read-only: writing to a closed stream still fails.
    if (fcntl(each, F_GETFD) < 0) static_cast<void>(!open("/dev/null", O_RDONLY));
  }
}

int show(const std::string& text) {
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  return written ? exit_ok : complain_unwritable(errno);
}

int run(loop& loop, const options& chosen) {
  switch (chosen.chosen) {
    case command::agent:
      return run_agent(loop, chosen);
    case command::list:
      return run_list(loop, chosen);
    case command::watch:
      return run_watch(loop, chosen);
    case command::wait:
      return run_wait(loop, chosen);
    case command::forget:
      return run_forget(loop, chosen);
    case command::metrics:
      return run_metrics(loop, chosen);
  }
  return exit_usage;
}

int run_program(int argc, char** argv) {
  const command_line given = parse_command_line(argc, argv);
  if (!given.run) {
    if (given.status == exit_ok) return show(given.text);
    complain(given.text);
    complain("try 'yusb-fleet --help'");
    return given.status;
  }
  YLog::setThreshold(static_cast<EYORVAN_LOG_LEVEL>(EYORVAN_LOG_LEVEL_FATAL + 1));
  loop loop;
  const int status = run(loop, *given.run);
  // The destructor of the loop would wait while a host name is being resolved.
  std::_Exit(status);
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  std::signal(SIGPIPE, SIG_IGN);  // writing to a closed connection reports EPIPE instead
  try {
    return run_program(argc, argv);
  } catch (const std::exception& failure) {
    complain(failure.what());
    return exit_failure;
  }
}
