#include "common/reentry.h"

#include "common/log.h"

namespace yusb {

void report_reentry(const char* function, int line) noexcept {
  YLog::output(
      log_error,
      "[ %s : %d ] Refused: must not be called from a handler that runs under the library's locks, or on "
      "the thread that it would wait for",
      function, line);
}

}  // namespace yusb
