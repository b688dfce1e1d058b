// Apple's published declarations of the names that the backend uses, as in current SDKs: with const,
// deprecations and values that depend on the deployment target. They were written independently of those in
// port/apple, which are more lenient. CFNumber has its own header because IOKit's headers do not include it.
#pragma once
#define APPLE_EXPORT extern "C" __attribute__((visibility("default")))

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef signed int SInt32;
typedef unsigned int UInt32;
typedef unsigned long long UInt64;
typedef unsigned long CFTypeID;
typedef signed long CFIndex;
typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;
APPLE_EXPORT const CFAllocatorRef kCFAllocatorDefault;
APPLE_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
APPLE_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
APPLE_EXPORT void CFRelease(CFTypeRef cf);
APPLE_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

#define CFSTR(cStr) ((CFStringRef)__builtin___CFStringMakeConstantString("" cStr ""))

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
APPLE_EXPORT const CFStringRef kCFRunLoopDefaultMode;
APPLE_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
APPLE_EXPORT void CFRunLoopRun(void);
APPLE_EXPORT void CFRunLoopStop(CFRunLoopRef rl);
APPLE_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFStringRef mode);

typedef const struct __CFUUID* CFUUIDRef;
typedef struct {
  UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
  UInt8 byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
} CFUUIDBytes;
APPLE_EXPORT CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef alloc, UInt8 byte0, UInt8 byte1,
                                                      UInt8 byte2, UInt8 byte3, UInt8 byte4, UInt8 byte5,
                                                      UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                                      UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                                      UInt8 byte14, UInt8 byte15);
APPLE_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;
#define S_OK ((HRESULT)0x00000000L)
