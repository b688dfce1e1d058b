// The objects behind Apple's opaque types that more than one file uses.
#ifndef YORVAN_PORT_APPLE_CORE_FOUNDATION_H_
#define YORVAN_PORT_APPLE_CORE_FOUNDATION_H_

#include <array>
#include <cstdint>

#include <CoreFoundation/CoreFoundation.h>

#include "apple/cf_object.h"
#include "apple/instance_counter.h"

// Numbers of up to 32 bits have the type SInt32, so a location with its top bit set is a negative number.
struct __CFNumber : yusb::port::cf_object {
  explicit __CFNumber(std::int32_t number) : value(number) {}
  const std::int32_t value;
  yusb::port::instance_counter counter{yusb::port::object_kind::number};
};

// A source of a run loop.
struct __CFRunLoopSource : yusb::port::cf_object {
  // Readable while perform() has something to do; -1 stands for none.
  virtual std::array<int, 2> poll_fds() const = 0;
  // Handles one item. False if there was none.
  virtual bool perform() = 0;
  // Called when the loop has nothing left to do and is about to wait.
  virtual void idle() = 0;
};

namespace yusb::port {

// Removes the source from its loop, if it was added to one. Call it on that loop's thread.
void invalidate(CFRunLoopSourceRef source);

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_CORE_FOUNDATION_H_
