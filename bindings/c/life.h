// Counts the users of the library through the C interface, and tests what every function tests first.
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

// One exists for each user of the started library, each running call and each simulator. A child that is
// forked meanwhile cannot use the library.
class in_use {
 public:
  in_use() noexcept;
  ~in_use();
  in_use(const in_use&) = delete;
  in_use& operator=(const in_use&) = delete;
};

// True in a child that was forked while an in_use existed: locks may stay locked forever there.
bool is_forked() noexcept;

// YUSB_FORKED, YUSB_REFUSED under the library's locks, or YUSB_OK.
yusb_status may_wait() noexcept;

// Counts as one user of the started library while it exists.
class use {
 public:
  use() noexcept;
  ~use();
  use(const use&) = delete;
  use& operator=(const use&) = delete;

  // YUSB_OK if it counts; otherwise the status of may_wait, or YUSB_NOT_STARTED.
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

// Returns the result of `function`, or the status for the exception that it throws.
template <typename Function>
yusb_status without_exceptions(Function function) {
  const in_use call;
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return YUSB_OUT_OF_MEMORY;
  } catch (const std::length_error&) {
    return YUSB_OUT_OF_MEMORY;  // a count that no memory can hold
  } catch (const std::system_error&) {
    return YUSB_NO_DESCRIPTOR;
  } catch (const std::runtime_error&) {
    return YUSB_NOT_STARTED;  // C++ code has released the library meanwhile
  }
}

}  // namespace yusb::c

#endif  // YUSB_BINDINGS_C_LIFE_H_
