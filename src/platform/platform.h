// What the common layer asks of an operating system, beside platform_hotplug_start, platform_hotplug_stop and
// platform_reset_apple of <yusb.h>.
#ifndef YUSB_PLATFORM_PLATFORM_H_
#define YUSB_PLATFORM_PLATFORM_H_

#include <yusb.h>

namespace yusb {

// Null if there is no memory.
_yusb_platform_context* platform_context_create() noexcept;

// Whether the calling thread is the monitor thread, for which a release would wait for ever.
bool platform_is_monitor_thread() noexcept;

// Only after platform_hotplug_stop has returned.
void platform_context_destroy(_yusb_platform_context* context) noexcept;

}  // namespace yusb

#endif  // YUSB_PLATFORM_PLATFORM_H_
