#include "bus/settle.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include <yusb_bus.h>

#include "bus/no_destructor.h"

namespace {

std::mutex _mutex;
// Never destroyed: the destructor blocks while a thread still waits.
yusb::port::no_destructor<std::condition_variable> _changed;
bool _idle = false;  // under _mutex

void set_idle(bool idle) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _idle = idle;
  if (idle) _changed.value.notify_all();
}

}  // namespace

void yusb::port::mark_busy() { set_idle(false); }

void yusb::port::mark_idle() { set_idle(true); }

bool yusb::bus_settle(std::chrono::milliseconds limit) {
  limit = std::clamp<std::chrono::milliseconds>(limit, limit.zero(), std::chrono::hours(24 * 365));
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.value.wait_for(lock, limit, [] { return _idle; });
}
