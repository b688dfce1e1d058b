// The command line of yusb-fleet.
#ifndef YUSB_FLEET_OPTIONS_H_
#define YUSB_FLEET_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>

#include "connection.h"
#include "format/filter.h"

namespace yusb::fleet {

enum exit_status { exit_ok = 0, exit_failure = 1, exit_usage = 2, exit_timeout = 3 };
enum class command { agent, list, watch, wait, forget, metrics };

struct options {
  command chosen = command::list;
  connection_options connection;
  std::string prefix = "yusb";
  std::string host;  // of agent and forget, else empty
  format::filter filter;
  std::chrono::seconds heartbeat{30};
  std::optional<std::chrono::milliseconds> limit;
  std::string file;  // of metrics
  bool json = false;
  bool gone = false;
  bool once = false;
};

struct command_line {
  std::optional<options> run;  // empty: print `text` and exit with `status`
  std::string text;
  int status = exit_ok;
};

command_line parse_command_line(int argc, const char* const* argv);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_OPTIONS_H_
