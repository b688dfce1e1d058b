// What the host's thread and the monitor thread share.
#ifndef YUSB_PLATFORM_DARWIN_CONTEXT_H_
#define YUSB_PLATFORM_DARWIN_CONTEXT_H_

#include <atomic>
#include <map>

#include <CoreFoundation/CoreFoundation.h>
#include <YorvanCore/YString.h>

#include "common/mutex.h"

// The life of a context's monitor thread.
enum class yusb_monitor { none, wanted, unwanted };

struct _yusb_platform_context {
  // The monitor thread's run loop, from when it is stored until a stop or the loop's end. Whoever takes it
  // out owns the reference that came with it, so a loop that is being stopped cannot be freed meanwhile.
  std::atomic<CFRunLoopRef> runLoop{nullptr};
  std::atomic<bool> running{false};        // from just before runLoop is stored until the loop has returned
  std::atomic<bool> stopRequested{false};  // once a stop was asked for; never reset
  // Nothing uses these two. They stay because the structure's fields are agreed: none is taken out or moved.
  std::map<YString, void*> handleMap;
  yusb::Mutex mutex;

  // `wanted` from start, `unwanted` from stop, `none` as the last thing the thread does: unlike `running` it
  // covers the time before the thread's first step and after its last.
  std::atomic<yusb_monitor> monitor{yusb_monitor::none};
};

#endif  // YUSB_PLATFORM_DARWIN_CONTEXT_H_
