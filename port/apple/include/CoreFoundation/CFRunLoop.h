#ifndef YORVAN_COREFOUNDATION_CFRUNLOOP_H_
#define YORVAN_COREFOUNDATION_CFRUNLOOP_H_

#include <CoreFoundation/CFString.h>

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;

YORVAN_APPLE_EXPORT const CFStringRef kCFRunLoopDefaultMode;

// Returns the calling thread's loop. It is freed when the thread ends, unless it is retained.
YORVAN_APPLE_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
YORVAN_APPLE_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFStringRef mode);
// Runs the calling thread's loop until it is stopped; returns at once if it has no source.
YORVAN_APPLE_EXPORT void CFRunLoopRun(void);
// May be called from any thread. Has no effect unless the loop is inside CFRunLoopRun.
YORVAN_APPLE_EXPORT void CFRunLoopStop(CFRunLoopRef rl);

#endif  // YORVAN_COREFOUNDATION_CFRUNLOOP_H_
