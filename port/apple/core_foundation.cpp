// Constants, numbers and universally unique identifiers.
#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "apple/core_foundation.h"

struct __CFAllocator : yusb::port::object {};
struct __CFString : yusb::port::object {};
struct __CFUUID : yusb::port::object {
  CFUUIDBytes bytes;
};

namespace {

std::mutex _constantMutex;

__CFAllocator _systemAllocator;
__CFString _defaultMode;

// Stores the low bits as a T; whether that is the whole value.
template <typename T>
Boolean store(std::int32_t value, void* where) {
  const T low = static_cast<T>(value);
  std::memcpy(where, &low, sizeof low);
  return static_cast<Boolean>(static_cast<std::int64_t>(low) == value);
}

}  // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorSystemDefault = &_systemAllocator;
const CFStringRef kCFRunLoopDefaultMode = &_defaultMode;

CFStringRef __CFStringMakeConstantString(const char* text) {
  static auto* const constants =
      new std::map<std::string, __CFString>();  // under _constantMutex; outlives every user
  const std::lock_guard<std::mutex> lock(_constantMutex);
  return &(*constants)[text];
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef /*alloc*/, UInt8 byte0, UInt8 byte1, UInt8 byte2,
                                         UInt8 byte3, UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                         UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12,
                                         UInt8 byte13, UInt8 byte14, UInt8 byte15) {
  using key = std::array<UInt8, 16>;
  static auto* const constants = new std::map<key, __CFUUID>();  // under _constantMutex; outlives every user
  const key bytes = {byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                     byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
  const std::lock_guard<std::mutex> lock(_constantMutex);
  __CFUUID& constant = (*constants)[bytes];
  std::memcpy(&constant.bytes, bytes.data(), sizeof constant.bytes);
  return &constant;
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return uuid->bytes; }

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
  switch (theType) {
    case kCFNumberSInt8Type:
      return store<std::int8_t>(number->value, valuePtr);
    case kCFNumberSInt16Type:
      return store<std::int16_t>(number->value, valuePtr);
    case kCFNumberSInt32Type:
      return store<std::int32_t>(number->value, valuePtr);
    case kCFNumberSInt64Type:
      return store<std::int64_t>(number->value, valuePtr);
  }
  return 0;
}
