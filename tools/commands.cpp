#include "commands.h"

#include <cstdlib>

namespace yusb::tool {

namespace {

class library {
 public:
  library() { global_initialize(); }
  ~library() { global_release(); }
  library(const library&) = delete;
  library& operator=(const library&) = delete;
};

}  // namespace

int run(const options& chosen, player* scenario) {
  const library running;
  int status = exit_ok;
  switch (chosen.chosen) {
    case command::list:
      status = list(chosen);
      break;
    case command::show:
      status = show(chosen);
      break;
    case command::watch:
      status = watch(chosen, scenario);
      break;
    case command::wait:
      status = wait(chosen, scenario);
      break;
  }
  // All output is written. Releasing the library would wait for a device that is being read, for seconds if
  // it does not answer.
  if (scenario == nullptr) std::_Exit(status);
  return status;
}

}  // namespace yusb::tool
