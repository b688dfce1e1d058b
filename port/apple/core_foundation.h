// The objects behind Apple's opaque types that more than one file here makes or reads.
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

// Something that a run loop waits for.
struct __CFRunLoopSource : yusb::port::cf_object {
  // To be readable when perform() has something to do; -1 stands for none.
  virtual std::array<int, 2> poll_fds() const = 0;
  // Does one piece of work; false if there was none.
  virtual bool perform() = 0;
  // The loop has nothing left to do and is about to wait.
  virtual void idle() = 0;
};

namespace yusb::port {

// Takes the source out of the loop it was added to, if any. On that loop's thread.
void invalidate(CFRunLoopSourceRef source);

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_CORE_FOUNDATION_H_
