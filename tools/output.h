#ifndef YUSB_TOOLS_OUTPUT_H_
#define YUSB_TOOLS_OUTPUT_H_

#include <string>
#include <string_view>

namespace yusb::tool {

// Standard output without a buffer: what is written is out.
class output {
 public:
  // Gives up on a reader that does not read when `stop`, a descriptor, is readable. -1: waits for ever.
  explicit output(int stop = -1) : _stop(stop) {}

  // False if not all could be written, and then ever after.
  bool write(std::string_view text);

  // Complains and returns false if writing failed for another reason than that the reader went away or the
  // program is to end.
  bool check() const;

 private:
  bool may_write() const;

  const int _stop;
  bool _ended = false;
  int _errno = 0;
};

// True if standard output is a terminal that wants colours: not with NO_COLOR set, nor on a dumb one.
bool coloured_output();

// Writes "yusb: MESSAGE" and a line end to standard error.
void complain(const std::string& message);

// Before anything is opened: a closed standard descriptor would become the next file that is, and be written
// to.
void occupy_standard_descriptors();

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_OUTPUT_H_
