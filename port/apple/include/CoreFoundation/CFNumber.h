#ifndef YORVAN_COREFOUNDATION_CFNUMBER_H_
#define YORVAN_COREFOUNDATION_CFNUMBER_H_

#include <CoreFoundation/CFBase.h>

typedef const struct __CFNumber* CFNumberRef;
typedef enum CFNumberType : CFIndex {
  kCFNumberSInt8Type = 1,
  kCFNumberSInt16Type = 2,
  kCFNumberSInt32Type = 3,
  kCFNumberSInt64Type = 4,
} CFNumberType;

// Stores the number's low bits in the type asked for; false if that loses any.
YORVAN_APPLE_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

#endif  // YORVAN_COREFOUNDATION_CFNUMBER_H_
