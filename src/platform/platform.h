// The functions that a platform implements, in addition to platform_hotplug_start, platform_hotplug_stop and
// platform_reset_apple of <yusb.h>.
#ifndef YUSB_PLATFORM_PLATFORM_H_
#define YUSB_PLATFORM_PLATFORM_H_

#include <yusb.h>

namespace yusb {

// Null if it cannot be allocated.
_yusb_platform_context* platform_context_create() noexcept;

// True on the monitor thread, where a release would wait for itself forever.
bool platform_is_monitor_thread() noexcept;

// Call it only after platform_hotplug_stop has returned.
void platform_context_destroy(_yusb_platform_context* context) noexcept;

}  // namespace yusb

#endif  // YUSB_PLATFORM_PLATFORM_H_
