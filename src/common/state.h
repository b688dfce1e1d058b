// The process-wide state and its locks.
//
// Lock order, everywhere: _global_context_mutex, then _global_device_mutex, then one context's mutex. No
// thread takes an earlier one while it holds a later one, and none takes one twice.
#ifndef YUSB_COMMON_STATE_H_
#define YUSB_COMMON_STATE_H_

#include <set>
#include <vector>

#include <yusb.h>

#include "common/mutex.h"

namespace yusb {

using context_set = std::set<_yusb_context*>;  // walked in ascending order of address
// In order of arrival. The same device may be in it twice.
using device_list = std::vector<YUsbInfoDevice>;

// The pointers change only in state_create and state_destroy, which do not overlap with any other call. Each
// is null before the first, after the second, and if its allocation failed.
extern Mutex* _global_context_mutex;
extern context_set* _global_context_array PT_GUARDED_BY(_global_context_mutex);
extern Mutex* _global_device_mutex ACQUIRED_AFTER(_global_context_mutex);
extern device_list* _global_device_array PT_GUARDED_BY(_global_device_mutex);

inline bool contexts_exist() { return _global_context_array != nullptr && _global_context_mutex != nullptr; }
inline bool device_list_exists() {
  return _global_device_array != nullptr && _global_device_mutex != nullptr;
}

// Creates the context set with its mutex, and the device list with its mutex. A pair of which one half exists
// is left as it is.
void state_create() noexcept;

// Destroys every context, lowest address first, then everything else, without sending events, and sets the
// pointers to null. Takes no lock.
void state_destroy() noexcept;

}  // namespace yusb

#endif  // YUSB_COMMON_STATE_H_
