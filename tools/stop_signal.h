#ifndef YUSB_TOOLS_STOP_SIGNAL_H_
#define YUSB_TOOLS_STOP_SIGNAL_H_

namespace yusb::tool {

// Becomes set when the program is to end: on SIGINT or SIGTERM, unless the program was started with that
// signal ignored, or on request. At most one may exist at a time. Its destructor restores the signals'
// previous actions.
class stop_signal {
 public:
  // Throws std::system_error.
  stop_signal();
  ~stop_signal();
  stop_signal(const stop_signal&) = delete;
  stop_signal& operator=(const stop_signal&) = delete;

  // Thread-safe; may be called repeatedly.
  void request() noexcept;

  // Becomes readable with the first signal or request, and stays so.
  int descriptor() const { return _read_end; }

  // Waits for a signal or a request, or until the last reader has closed `output`, a pipe.
  void wait(int output) const;

 private:
  int _read_end;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_STOP_SIGNAL_H_
