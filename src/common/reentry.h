// Catches a handler that calls back into the library while this thread holds its locks.
#ifndef YUSB_COMMON_REENTRY_H_
#define YUSB_COMMON_REENTRY_H_

namespace yusb {

// Lives while client code (a handler, or the log's sink) runs on this thread and the library waits for it.
class client_code {
 public:
  client_code() : _outer(_running) { _running = true; }
  ~client_code() { _running = _outer; }
  client_code(const client_code&) = delete;
  client_code& operator=(const client_code&) = delete;

  static bool running() { return _running; }

 private:
  const bool _outer;
  inline static thread_local bool _running = false;
};

// Writes the error line for a call that was refused.
void report_reentry(const char* function, int line) noexcept;

// True, after a line in the log, if the function that asks must not run now. Every function that takes a
// lock or waits for the monitor thread asks first.
inline bool refused(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) noexcept {
  if (!client_code::running()) return false;
  report_reentry(function, line);
  return true;
}

}  // namespace yusb

#endif  // YUSB_COMMON_REENTRY_H_
