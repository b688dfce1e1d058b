// The log: one line per call, to standard error or to a function of the host.
#ifndef YORVANCORE_YLOG_H_
#define YORVANCORE_YLOG_H_

#include <cstddef>

#include <YorvanCore/YString.h>

// The level of a line.
enum EYORVAN_LOG_LEVEL : int {
  EYORVAN_LOG_LEVEL_TRACE = 0,
  EYORVAN_LOG_LEVEL_INFO = 1,
  EYORVAN_LOG_LEVEL_NOTICE = 2,
  EYORVAN_LOG_LEVEL_WARNING = 3,
  EYORVAN_LOG_LEVEL_ERROR = 4,
  EYORVAN_LOG_LEVEL_FATAL = 5,
};

// The functions of the log. All are thread-safe.
class YORVANCORE_EXPORT YLog {
 public:
  // Receives one line: `size` bytes and a terminating zero, without a line feed at the end. They may contain
  // any byte that was logged, also a line feed. Calls never overlap; each is made on the thread that logs. A
  // sink must not throw and must not wait for a thread that may log. Lines that the sink itself logs go to
  // standard error.
  using Sink = void (*)(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size, void* user);

  // Writes one line, formatted like printf. On standard error, control characters except the tab are written
  // as \xNN, so that a line stays one line. Lines of up to 511 bytes need no memory; a longer line that
  // cannot be allocated is truncated to 511 bytes.
  static void output(EYORVAN_LOG_LEVEL level, const char* format, ...) noexcept YORVANCORE_PRINTF(2, 3);

  // Sends lines to a function of the host. `sink` receives them; null is standard error. `user` is passed to
  // it. When this returns, the previous sink no longer runs. May be called from any thread; in a sink it does
  // nothing.
  static void setSink(Sink sink, void* user) noexcept;

  // Drops lines below a level before they are formatted. The default drops none. `level` is the lowest level
  // that is logged.
  static void setThreshold(EYORVAN_LOG_LEVEL level) noexcept;
};

#endif  // YORVANCORE_YLOG_H_
