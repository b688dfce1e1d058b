#pragma once
#include <CoreFoundation/CFBase.h>

typedef UInt32 CFStringEncoding;
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
APPLE_EXPORT CFTypeID CFStringGetTypeID(void);
APPLE_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                        CFStringEncoding encoding);
