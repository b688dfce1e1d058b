#include "apple/object.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

namespace yusb::port {

namespace {

std::array<std::atomic<long>, static_cast<std::size_t>(kind::count)> _alive{};

std::mutex _handleMutex;
immortal<std::map<io_object_t, std::shared_ptr<io_object>>> _handleTable;  // under _handleMutex
auto& _handles = _handleTable.value;
io_object_t _lastHandle = IO_OBJECT_NULL;  // under _handleMutex

std::mutex _hookMutex;
immortal<std::shared_ptr<call_hook>> _hookSlot;  // under _hookMutex
auto& _hook = _hookSlot.value;
std::atomic<bool> _hooked{false};  // whether to take the lock at all

}  // namespace

const char* name_of(kind which) {
  static constexpr const char* names[] = {
      "number",  "matching dictionary", "run loop", "notification port", "iterator", "service",
      "plug-in", "device interface"};
  return names[static_cast<std::size_t>(which)];
}

long alive(kind which) { return _alive[static_cast<std::size_t>(which)]; }

counted::counted(kind which) : _kind(which) { ++_alive[static_cast<std::size_t>(_kind)]; }
counted::~counted() { --_alive[static_cast<std::size_t>(_kind)]; }

io_object_t make_handle(std::shared_ptr<io_object> what) {
  const std::lock_guard<std::mutex> lock(_handleMutex);
  do {
    ++_lastHandle;  // a handle that was released stays invalid until the numbers come round
  } while (_lastHandle == IO_OBJECT_NULL || _handles.count(_lastHandle) != 0);
  _handles.emplace(_lastHandle, std::move(what));
  return _lastHandle;
}

std::shared_ptr<io_object> find_handle(io_object_t handle) {
  const std::lock_guard<std::mutex> lock(_handleMutex);
  const auto found = _handles.find(handle);
  return found == _handles.end() ? nullptr : found->second;
}

bool drop_handle(io_object_t handle) {
  std::shared_ptr<io_object> dropped;  // what it ends, it ends outside the lock
  const std::lock_guard<std::mutex> lock(_handleMutex);
  const auto found = _handles.find(handle);
  if (found == _handles.end()) return false;
  dropped = std::move(found->second);
  _handles.erase(found);
  return true;
}

bool calling(const char* call) {
  if (!_hooked.load(std::memory_order_acquire)) return true;
  std::shared_ptr<call_hook> hook;
  {
    const std::lock_guard<std::mutex> lock(_hookMutex);
    hook = _hook;
  }
  return hook == nullptr || (*hook)(call);
}

void set_call_hook(call_hook hook) {
  const std::lock_guard<std::mutex> lock(_hookMutex);
  _hook = hook ? std::make_shared<call_hook>(std::move(hook)) : nullptr;
  _hooked = _hook != nullptr;
}

void misuse(const char* what) {
  std::fprintf(stderr, "YorvanUsb: %s\n", what);
  std::abort();
}

}  // namespace yusb::port

kern_return_t IOObjectRelease(io_object_t object) {
  return yusb::port::drop_handle(object) ? KERN_SUCCESS : kIOReturnBadArgument;
}

CFTypeRef CFRetain(CFTypeRef cf) {
  if (cf == nullptr) yusb::port::misuse("CFRetain() called with null");
  auto* object = static_cast<yusb::port::object*>(const_cast<void*>(cf));
  object->references.fetch_add(1, std::memory_order_relaxed);
  return cf;
}

void CFRelease(CFTypeRef cf) {
  if (cf == nullptr) yusb::port::misuse("CFRelease() called with null");
  auto* object = static_cast<yusb::port::object*>(const_cast<void*>(cf));
  if (object->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
}
