// What the commands that read have in common: a loop, a reader and standard output.
#ifndef YUSB_FLEET_SESSION_H_
#define YUSB_FLEET_SESSION_H_

#include <memory>
#include <string>

#include "loop.h"
#include "options.h"
#include "reader.h"

namespace yusb::fleet {

void complain_incomplete(const std::string& host);
// Call it if standard output could not be written. Returns the exit status: success if it is a closed pipe.
int complain_unwritable(int error);

class session {
 public:
  // A command that runs until it is stopped ends with success at SIGTERM and SIGINT. A signal kills the
  // others, which have not done what they should.
  session(loop& loop, const options& chosen);

  // Runs until end(), and returns its status. `log`, `incomplete` and `lost` of `handlers` may be empty.
  // `only` is one host, as a level of a topic; if it is empty, all hosts are read.
  int run(reader::handlers handlers, const std::string& only = "");

  void end(int status);

  // Prints that there is no connection, unless the last time had the same reason.
  void complain_lost(const std::string& reason);

  // If standard output cannot be written, ends the session: with success if it is a closed pipe. While
  // nothing reads it, this waits, but not after a signal.
  void print(const std::string& text);

  bool selects(const shown_device& device) const { return !_chosen.filter || _chosen.filter(device.device); }

  loop& events() { return _loop; }
  fleet::reader& picture() { return *_reader; }

 private:
  bool may_write() const;

  loop& _loop;
  const options& _chosen;
  int _signals = -1;  // readable after one
  std::unique_ptr<fleet::reader> _reader;
  std::string _last_loss;
  bool _unwritable = false;
  int _status = exit_ok;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_SESSION_H_
