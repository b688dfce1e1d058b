#include "life.h"

#include <pthread.h>

#include <atomic>
#include <mutex>

#include <yusb.h>
#include <yusb_bus.h>

namespace yusb::c {

namespace {

std::mutex _mutex;
unsigned _users = 0;     // under _mutex
unsigned _starts = 0;    // under _mutex; how many of them yusb_start has added
bool _attached = false;  // under _mutex: C++ code has started the library

std::atomic<unsigned> _in_use{0};
std::atomic<bool> _forked{false};

[[maybe_unused]] const int _registered =
    pthread_atfork(nullptr, nullptr, [] { _forked = _forked || _in_use != 0; });

struct locked {
  const in_use call;  // exists before the lock is taken and until it is released
  const std::lock_guard<std::mutex> lock{_mutex};
};

void add_user() {
  ++_users;
  ++_in_use;
}

void remove_user() {
  if (_users == 1 && !_attached) global_release();
  --_users;
  --_in_use;
}

bool is_initialised() {
  return device_traverse(nullptr, [](const YUsbInfoDevice&) { return false; });
}

yusb_status begin_use() noexcept {
  if (const yusb_status status = may_wait()) return status;
  const locked lock;
  if (_users == 0) return YUSB_NOT_STARTED;
  add_user();
  return YUSB_OK;
}

}  // namespace

in_use::in_use() noexcept { ++_in_use; }
in_use::~in_use() { --_in_use; }

bool is_forked() noexcept { return _forked; }

yusb_status may_wait() noexcept {
  if (_forked) return YUSB_FORKED;
  // Without a visitor this call does nothing; its result says whether it was refused.
  return airpods_traverse(nullptr, {}) ? YUSB_OK : YUSB_REFUSED;
}

use::use() noexcept : _status(begin_use()) {}

use::~use() {
  if (_status != YUSB_OK) return;
  const locked lock;
  remove_user();
}

bool is_started() noexcept {
  const locked lock;
  return _users != 0;
}

}  // namespace yusb::c

using namespace yusb::c;

yusb_status yusb_start() {
  if (const yusb_status status = may_wait()) return status;
  const locked lock;
  if (_users == 0) {
    _attached = is_initialised();
    if (!_attached) yusb::global_initialize();
    if (!is_initialised()) {
      yusb::global_release();
      return YUSB_OUT_OF_MEMORY;
    }
  }
  add_user();
  ++_starts;
  return YUSB_OK;
}

yusb_status yusb_stop() {
  if (const yusb_status status = may_wait()) return status;
  const locked lock;
  if (_starts == 0) return YUSB_NOT_STARTED;
  --_starts;
  remove_user();
  return YUSB_OK;
}

yusb_status yusb_settle(std::int64_t limit) {
  const use used;
  if (used.status() != YUSB_OK) return used.status();
  return yusb::bus_settle(limit_of(limit)) ? YUSB_OK : YUSB_TIMED_OUT;
}

yusb_status yusb_bus_present(bool* present) {
  if (present == nullptr) return YUSB_INVALID_ARGUMENT;
  *present = false;
  if (is_forked()) return YUSB_FORKED;
  *present = yusb::bus_present();
  return YUSB_OK;
}

const char* yusb_status_text(yusb_status status) {
  switch (status) {
    case YUSB_OK:
      return "success";
    case YUSB_TIMED_OUT:
      return "the time limit has passed";
    case YUSB_CLOSED:
      return "the queue is closed";
    case YUSB_GONE:
      return "the device is not attached";
    case YUSB_INVALID_ARGUMENT:
      return "invalid argument";
    case YUSB_NOT_STARTED:
      return "the library is not started";
    case YUSB_OUT_OF_MEMORY:
      return "out of memory";
    case YUSB_NO_DESCRIPTOR:
      return "out of file descriptors";
    case YUSB_REFUSED:
      return "refused under the library's locks";
    case YUSB_FORKED:
      return "the library cannot be used in a forked child";
    case YUSB_BUSY:
      return "still in use";
    case YUSB_UNSUPPORTED:
      return "not supported";
  }
  return "unknown status";
}
