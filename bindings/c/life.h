// Who uses the library through the C interface, and what every function does first.
#ifndef YUSB_BINDINGS_C_LIFE_H_
#define YUSB_BINDINGS_C_LIFE_H_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <system_error>

#include <yusb_c.h>

namespace yusb::c {

// What a fork must not interrupt: its child cannot use the library. A user of the library, a call, a
// simulator.
class in_use {
 public:
  in_use() noexcept;
  ~in_use();
  in_use(const in_use&) = delete;
  in_use& operator=(const in_use&) = delete;
};

// True in a child that was forked while there was an in_use: locks may be held for good there.
bool is_forked() noexcept;

// YUSB_FORKED, YUSB_REFUSED under the library's locks, or YUSB_OK.
yusb_status may_wait() noexcept;

// One user of the library that is started already, for as long as the object lives.
class use {
 public:
  use() noexcept;
  ~use();
  use(const use&) = delete;
  use& operator=(const use&) = delete;

  // YUSB_OK if this is one; else that of may_wait, or YUSB_NOT_STARTED.
  yusb_status status() const noexcept { return _status; }

 private:
  const yusb_status _status;
};

// True if the library is started.
bool is_started() noexcept;

// A time limit, at most a year.
inline std::chrono::milliseconds limit_of(std::int64_t milliseconds) {
  constexpr std::chrono::milliseconds year = std::chrono::hours(24 * 365);
  return milliseconds < 0 ? year : std::min(std::chrono::milliseconds(milliseconds), year);
}

// Returns what `function` returns, or the status of what it throws.
template <typename Function>
yusb_status without_exceptions(Function function) {
  const in_use call;
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return YUSB_OUT_OF_MEMORY;
  } catch (const std::system_error&) {
    return YUSB_NO_DESCRIPTOR;
  } catch (const std::runtime_error&) {
    return YUSB_NOT_STARTED;  // C++ code has released the library meanwhile
  }
}

}  // namespace yusb::c

#endif  // YUSB_BINDINGS_C_LIFE_H_
