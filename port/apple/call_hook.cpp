#include "apple/call_hook.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include <yusb_simulator.h>

#include "bus/no_destructor.h"

namespace yusb::port {

namespace {

using call_hook = std::function<bool(const char* call)>;

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

}  // namespace yusb::port

void yusb::simulator::before_calls(std::function<bool(const char* call)> hook) {
  const std::lock_guard<std::mutex> lock(port::_mutex);
  port::_hook = hook ? std::make_shared<port::call_hook>(std::move(hook)) : nullptr;
  port::_hooked = port::_hook != nullptr;
}
