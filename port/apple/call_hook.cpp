#include "apple/call_hook.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "bus/no_destructor.h"

namespace yusb::port {

namespace {

std::mutex _mutex;
no_destructor<std::shared_ptr<call_hook>> _slot;  // under _mutex
auto& _hook = _slot.value;
std::atomic<bool> _hooked{false};  // true if there is a hook; saves the lock otherwise

}  // namespace

bool before_call(const char* call) {
  if (!_hooked.load(std::memory_order_acquire)) return true;
  std::shared_ptr<call_hook> hook;
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    hook = _hook;
  }
  return hook == nullptr || (*hook)(call);
}

void set_call_hook(call_hook hook) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _hook = hook ? std::make_shared<call_hook>(std::move(hook)) : nullptr;
  _hooked = _hook != nullptr;
}

}  // namespace yusb::port
