// The log: one line a call, to standard error or to wherever the host wants it.
#ifndef YORVANCORE_YLOG_H_
#define YORVANCORE_YLOG_H_

#include <cstddef>

#include <YorvanCore/YString.h>

enum EYORVAN_LOG_LEVEL : int {
  EYORVAN_LOG_LEVEL_TRACE = 0,
  EYORVAN_LOG_LEVEL_INFO = 1,
  EYORVAN_LOG_LEVEL_NOTICE = 2,
  EYORVAN_LOG_LEVEL_WARNING = 3,
  EYORVAN_LOG_LEVEL_ERROR = 4,
  EYORVAN_LOG_LEVEL_FATAL = 5,
};

class YORVANCORE_EXPORT YLog {
 public:
  // Takes one line: `size` bytes and a zero behind them, without a line end; they may hold any byte that
  // was logged, a line feed too. Calls come one at a time, on whichever thread logs. A sink must not
  // throw. What it logs itself goes to standard error. It must not wait for a thread that may log.
  using Sink = void (*)(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size, void* user);

  // Writes one line, as printf. Control characters but the tab appear on standard error as \xNN, so that a
  // line stays one line. Throws nothing. Lines of up to 511 bytes need no memory; a longer one that cannot be
  // allocated is cut to 511.
  static void output(EYORVAN_LOG_LEVEL level, const char* format, ...) noexcept YORVANCORE_PRINTF(2, 3);

  // Where lines go from now on, with `user` handed through; null is standard error. When it returns,
  // the previous sink runs no more. From any thread; not from a sink, where it does nothing.
  static void setSink(Sink sink, void* user) noexcept;

  // Lines below this level are dropped before they are formatted. At first every line is shown.
  static void setThreshold(EYORVAN_LOG_LEVEL level) noexcept;
};

#endif  // YORVANCORE_YLOG_H_
