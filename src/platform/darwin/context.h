// The state that the host's threads and the monitor thread share.
#ifndef YUSB_PLATFORM_DARWIN_CONTEXT_H_
#define YUSB_PLATFORM_DARWIN_CONTEXT_H_

#include <atomic>
#include <map>

#include <CoreFoundation/CoreFoundation.h>
#include <YorvanCore/YString.h>

#include "common/mutex.h"

// The state of a context's monitor thread.
enum class yusb_monitor { none, wanted, unwanted };

struct _yusb_platform_context {
  // The monitor thread's run loop, until a stop or the end of the loop takes it out. The thread that takes it
  // out owns its reference, so that a loop cannot be freed while it is being stopped.
  std::atomic<CFRunLoopRef> runLoop{nullptr};
  std::atomic<bool> running{false};  // true from just before runLoop is stored until the loop has returned
  std::atomic<bool> stopRequested{false};  // true after the first stop; never reset
  // Unused. They stay because the fields of this structure and their order are fixed.
  std::map<YString, void*> handleMap;
  yusb::Mutex mutex;

  // Start sets `wanted`, stop sets `unwanted`, and the thread's last step sets `none`. Unlike `running`, it
  // also covers the time before the thread's first step and after its last.
  std::atomic<yusb_monitor> monitor{yusb_monitor::none};
};

#endif  // YUSB_PLATFORM_DARWIN_CONTEXT_H_
