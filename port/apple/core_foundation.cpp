// Constants, numbers and UUIDs.
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

#include "apple/core_foundation.h"
#include "apple/misuse.h"
#include "bus/no_destructor.h"

struct __CFAllocator : yusb::port::cf_object {};
struct __CFString : yusb::port::cf_object {
  std::string text;
};
struct __CFUUID : yusb::port::cf_object {
  CFUUIDBytes bytes = {};
};

namespace {

using yusb::port::no_destructor;

// Objects that are never destroyed, found by their value. A program uses only a few.
template <typename T>
struct constants {
  std::mutex mutex;
  std::array<T, 16> objects;  // under mutex
  std::size_t used = 0;       // under mutex

  template <typename Same, typename Fill>
  const T* find(Same same, Fill fill) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto end = objects.begin() + static_cast<std::ptrdiff_t>(used);
    const auto found = std::find_if(objects.begin(), end, same);
    if (found != end) return &*found;
    if (used == objects.size()) yusb::port::misuse("too many constant objects");
    T& made = objects[used++];
    fill(made);
    return &made;
  }
};

no_destructor<constants<__CFString>> _strings;
no_destructor<constants<__CFUUID>> _uuids;
no_destructor<__CFAllocator> _systemAllocator;
no_destructor<__CFString> _defaultMode;

}  // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorSystemDefault = &_systemAllocator.value;
const CFStringRef kCFRunLoopDefaultMode = &_defaultMode.value;

CFStringRef __CFStringMakeConstantString(const char* text) {
  return _strings.value.find([&](const __CFString& made) { return made.text == text; },
                             [&](__CFString& made) { made.text = text; });
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef /*alloc*/, UInt8 byte0, UInt8 byte1, UInt8 byte2,
                                         UInt8 byte3, UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                         UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12,
                                         UInt8 byte13, UInt8 byte14, UInt8 byte15) {
  const CFUUIDBytes bytes = {byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                             byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
  return _uuids.value.find(
      [&](const __CFUUID& made) { return std::memcmp(&made.bytes, &bytes, sizeof bytes) == 0; },
      [&](__CFUUID& made) { made.bytes = bytes; });
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return uuid->bytes; }

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
  if (theType != kCFNumberSInt32Type) return 0;
  std::memcpy(valuePtr, &number->value, sizeof number->value);
  return 1;
}
