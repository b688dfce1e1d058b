#include "common/state.h"

#include <new>

#include "common/delivery.h"

namespace yusb {

Mutex* _global_context_mutex = nullptr;
context_set* _global_context_array = nullptr;
Mutex* _global_device_mutex = nullptr;
device_list* _global_device_array = nullptr;

namespace {

template <typename T>
void destroy(T*& object) {
  delete object;
  object = nullptr;
}

}  // namespace

void state_create() noexcept {
  if (_global_context_array == nullptr && _global_context_mutex == nullptr) {
    _global_context_array = new (std::nothrow) context_set();
    _global_context_mutex = new (std::nothrow) Mutex();
  }
  if (_global_device_array == nullptr && _global_device_mutex == nullptr) {
    _global_device_array = new (std::nothrow) device_list();
    _global_device_mutex = new (std::nothrow) Mutex();
  }
}

void state_destroy() noexcept NO_THREAD_SAFETY_ANALYSIS {
  if (contexts_exist()) {
    while (!_global_context_array->empty()) {
      _yusb_context* const context = *_global_context_array->begin();
      _global_context_array->erase(_global_context_array->begin());
      delete context;
    }
  }
  destroy(_global_context_array);
  destroy(_global_context_mutex);
  destroy(_global_device_array);
  destroy(_global_device_mutex);
}

}  // namespace yusb
