#include "apple/handles.h"

#include <map>
#include <mutex>
#include <utility>

#include "bus/bus.h"
#include "bus/no_destructor.h"

namespace yusb::port {

namespace {

std::mutex _mutex;
no_destructor<std::map<io_object_t, std::shared_ptr<io_object>>> _table;  // under _mutex
auto& _handles = _table.value;
io_object_t _lastHandle = IO_OBJECT_NULL;  // under _mutex

}  // namespace

io_object_t make_handle(std::shared_ptr<io_object> what) {
  const std::lock_guard<std::mutex> lock(_mutex);
  do {
    ++_lastHandle;  // a released handle stays invalid until the numbers wrap around
  } while (_lastHandle == IO_OBJECT_NULL || _handles.count(_lastHandle) != 0);
  _handles.emplace(_lastHandle, std::move(what));
  return _lastHandle;
}

std::shared_ptr<io_object> find_handle(io_object_t handle) {
  const std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _handles.find(handle);
  return found == _handles.end() ? nullptr : found->second;
}

namespace {

// False if the handle is invalid.
bool drop_handle(io_object_t handle) {
  std::shared_ptr<io_object> dropped;  // destroyed outside the lock
  const std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _handles.find(handle);
  if (found == _handles.end()) return false;
  dropped = std::move(found->second);
  _handles.erase(found);
  return true;
}

}  // namespace

}  // namespace yusb::port

kern_return_t IOObjectRelease(io_object_t object) {
  return yusb::port::drop_handle(object) ? KERN_SUCCESS : yusb::port::status_bad_argument;
}
