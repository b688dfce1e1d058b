// Initialisation and release, and the loader's hooks.
#include "common/reentry.h"
#include "common/state.h"
#include "platform/platform.h"

namespace yusb {

namespace {

// Needs no lock: initialisation and release do not overlap with any other call.
_yusb_platform_context* _global_platform_context = nullptr;

}  // namespace

void common_global_initialize() noexcept {
  if (reject_reentry()) return;
  state_create();
  if (_global_platform_context == nullptr) _global_platform_context = platform_context_create();
  platform_hotplug_start(_global_platform_context);  // does nothing if the thread already runs
}

void common_global_release() noexcept {
  if (reject_reentry()) return;
  if (platform_is_monitor_thread()) {
    report_reentry(__func__, __LINE__);
    return;
  }
  if (_global_platform_context != nullptr) {
    platform_hotplug_stop(_global_platform_context);
    platform_context_destroy(_global_platform_context);
    _global_platform_context = nullptr;
  }
  state_destroy();
}

void global_initialize() noexcept { common_global_initialize(); }

void global_release() noexcept { common_global_release(); }

}  // namespace yusb

// The optimiser must keep the empty assembly. It would drop a hook without an effect from the loader's table,
// and then a debugger could not stop where the library is loaded.
bool yorvan_usb_dynamic_library_initialize() noexcept {
  __asm__ volatile("");
  return true;
}

void yorvan_usb_dynamic_library_release() noexcept { __asm__ volatile(""); }

__attribute__((constructor)) void _yorvan_usb_dynamic_library_init() noexcept {
  static_cast<void>(yorvan_usb_dynamic_library_initialize());
}

__attribute__((destructor)) void _yorvan_usb_dynamic_library_fini() noexcept {
  yorvan_usb_dynamic_library_release();
}
