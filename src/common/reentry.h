// Detects a handler that calls the library while this thread holds the library's locks.
#ifndef YUSB_COMMON_REENTRY_H_
#define YUSB_COMMON_REENTRY_H_

namespace yusb {

// Logs that a call was refused.
void report_reentry(const char* function, int line) noexcept;

// Exists while client code (a handler or the log sink) may run on this thread and the library waits for it.
class callback_scope {
 public:
  callback_scope() : _here(_running), _outer(_here) { _here = true; }
  ~callback_scope() { _here = _outer; }
  callback_scope(const callback_scope&) = delete;
  callback_scope& operator=(const callback_scope&) = delete;

  static bool running() { return _running; }

  // True, after a line in the log, if this scope began inside another one: the function must not run there.
  bool reject_reentry(const char* function = __builtin_FUNCTION(),
                      int line = __builtin_LINE()) const noexcept {
    if (_outer) report_reentry(function, line);
    return _outer;
  }

 private:
  bool& _here;  // cached: every access to a thread_local costs a call
  const bool _outer;
  inline static thread_local bool _running = false;
};

// Same as callback_scope::reject_reentry, for a function that runs no client code. Every function that takes
// a lock or waits for the monitor thread first calls one of the two.
inline bool reject_reentry(const char* function = __builtin_FUNCTION(),
                           int line = __builtin_LINE()) noexcept {
  if (!callback_scope::running()) return false;
  report_reentry(function, line);
  return true;
}

}  // namespace yusb

#endif  // YUSB_COMMON_REENTRY_H_
