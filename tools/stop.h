#ifndef YUSB_TOOLS_STOP_H_
#define YUSB_TOOLS_STOP_H_

namespace yusb::tool {

// Tells when the program is to end: on SIGINT or SIGTERM, unless whoever started the program had them
// ignored, or when asked. One at a time; it lasts as long as the program watches, and signals do as before
// when it is gone.
class stop {
 public:
  // Throws std::system_error.
  stop();
  ~stop();
  stop(const stop&) = delete;
  stop& operator=(const stop&) = delete;

  // From any thread, more than once.
  void request() noexcept;

  // A descriptor that becomes readable with the first request and stays so.
  int descriptor() const { return _read_end; }

  // Waits for a request, or until nobody can read from `output` any more.
  void wait(int output) const;

 private:
  int _read_end;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_STOP_H_
