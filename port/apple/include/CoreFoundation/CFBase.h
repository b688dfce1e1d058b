// The published names of Apple's frameworks that the backend uses, for hosts without the frameworks. Types,
// values and layouts agree with Apple's; the behaviour is no more forgiving.
#ifndef YORVAN_COREFOUNDATION_CFBASE_H_
#define YORVAN_COREFOUNDATION_CFBASE_H_

#if defined(YUSB_STATIC)
#define YORVAN_APPLE_EXPORT extern "C"  // a static library must not export Apple's names
#else
#define YORVAN_APPLE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef int SInt32;
typedef unsigned int UInt32;
typedef long CFIndex;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;

YORVAN_APPLE_EXPORT const CFAllocatorRef kCFAllocatorDefault;        // null
YORVAN_APPLE_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;  // not null

// Both terminate the process if `cf` is null.
YORVAN_APPLE_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
YORVAN_APPLE_EXPORT void CFRelease(CFTypeRef cf);

#endif  // YORVAN_COREFOUNDATION_CFBASE_H_
