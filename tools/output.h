#ifndef YUSB_TOOLS_OUTPUT_H_
#define YUSB_TOOLS_OUTPUT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace yusb::tool {

// Unbuffered standard output.
class output {
 public:
  // Stops waiting for a slow reader once the descriptor `stop` is readable. -1: waits forever.
  explicit output(int stop = -1) : _stop(stop) {}

  // False if not everything could be written; every later call then fails too.
  bool write(std::string_view text);

  // Prints an error and returns false if writing failed, unless because the reader closed the pipe or the
  // program is to stop.
  bool check() const;

 private:
  bool may_write() const;

  const int _stop;
  bool _ended = false;
  int _errno = 0;
};

// True if standard output is a terminal, TERM is not "dumb", and NO_COLOR is unset or empty.
bool coloured_output();

// The cells in a line of the terminal that standard output is; empty if it is none. A terminal that does not
// say has what COLUMNS says, or 80.
std::optional<std::size_t> terminal_width();

// Writes "yusb: MESSAGE" and a line end to standard error.
void complain(const std::string& message);

// Opens the standard descriptors that are closed. Call it before anything else is opened: the next file would
// take such a descriptor and receive the output.
void occupy_standard_descriptors();

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_OUTPUT_H_
