#pragma once
#include <CoreFoundation/CFBase.h>

enum CFNumberType : CFIndex;
typedef enum CFNumberType CFNumberType;
enum CFNumberType : CFIndex {
  kCFNumberSInt8Type = 1,
  kCFNumberSInt16Type = 2,
  kCFNumberSInt32Type = 3,
  kCFNumberSInt64Type = 4
};
typedef const struct __CFNumber* CFNumberRef;
APPLE_EXPORT CFTypeID CFNumberGetTypeID(void);
APPLE_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
