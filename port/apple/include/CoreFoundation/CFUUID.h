#ifndef YORVAN_COREFOUNDATION_CFUUID_H_
#define YORVAN_COREFOUNDATION_CFUUID_H_

#include <CoreFoundation/CFBase.h>

typedef const struct __CFUUID* CFUUIDRef;
typedef struct {
  UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
  UInt8 byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
} CFUUIDBytes;

// Returns one object for equal bytes. It is never destroyed and must not be released.
YORVAN_APPLE_EXPORT CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef alloc, UInt8 byte0, UInt8 byte1,
                                                             UInt8 byte2, UInt8 byte3, UInt8 byte4,
                                                             UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                                             UInt8 byte8, UInt8 byte9, UInt8 byte10,
                                                             UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                                             UInt8 byte14, UInt8 byte15);
YORVAN_APPLE_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

#endif  // YORVAN_COREFOUNDATION_CFUUID_H_
