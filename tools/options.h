#ifndef YUSB_TOOLS_OPTIONS_H_
#define YUSB_TOOLS_OPTIONS_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "format/filter.h"

namespace yusb::tool {

// The exit status of the program.
enum exit_status : int {
  exit_ok = 0,
  exit_failure = 1,    // no bus, no such device to show, or the output cannot be written
  exit_usage = 2,      // an invalid command line or scenario
  exit_timed_out = 3,  // `wait` did not see what it waits for
};

enum class command { list, show, watch, wait };

struct options {
  command chosen = command::list;
  format::filter filter;  // all given filters combined, or what `show` names; empty if there is none
  bool json = false;
  bool log = false;
  std::optional<std::string> scenario_file;

  bool tree = false;                                   // list
  bool only_new = false;                               // watch, wait
  bool openable = false;                               // watch, wait
  std::optional<std::chrono::milliseconds> limit;      // watch --for, wait --timeout
  bool mark_listed = false;                            // watch
  std::optional<std::chrono::milliseconds> heartbeat;  // watch, at least 1 ms
  std::optional<std::size_t> count;                    // watch, at least 1
  bool gone = false;                                   // wait
};

struct command_line {
  std::optional<options> run;  // if empty, print `text` and exit with `status`
  std::string text;            // help or version for standard output, or an error message
  int status = exit_ok;
};

command_line parse_command_line(int argc, const char* const* argv);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_OPTIONS_H_
