#ifndef YORVAN_COREFOUNDATION_CFNUMBER_H_
#define YORVAN_COREFOUNDATION_CFNUMBER_H_

#include <CoreFoundation/CFBase.h>

typedef const struct __CFNumber* CFNumberRef;
typedef enum CFNumberType : CFIndex {
  kCFNumberSInt32Type = 3,
} CFNumberType;

// Stores the number. False, with nothing stored, if another type is requested.
YORVAN_APPLE_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

#endif  // YORVAN_COREFOUNDATION_CFNUMBER_H_
