#ifndef YUSB_TOOLS_OPTIONS_H_
#define YUSB_TOOLS_OPTIONS_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include <yusb_filter.h>

namespace yusb::tool {

// What the program ends with.
enum exit_status : int {
  exit_ok = 0,
  exit_failure = 1,    // no bus, or output that cannot be written
  exit_usage = 2,      // a wrong command line or scenario
  exit_timed_out = 3,  // what `wait` waits for did not happen
};

enum class command { list, watch, wait };

struct options {
  command chosen = command::list;
  device_filter filter;  // all that were given together; empty if none
  bool json = false;
  bool log = false;
  std::optional<std::string> scenario_file;

  bool tree = false;                               // list
  std::optional<std::chrono::milliseconds> limit;  // watch --for, wait --timeout
  std::optional<std::size_t> count;                // watch, at least 1
  bool gone = false;                               // wait
};

struct command_line {
  std::optional<options> run;  // what to do; else say `text` and end with `status`
  std::string text;            // a help or version text for standard output, or what is wrong
  int status = exit_ok;
};

command_line parse_command_line(int argc, const char* const* argv);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_OPTIONS_H_
