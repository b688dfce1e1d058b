#ifndef YORVAN_IOKIT_IOKITLIB_H_
#define YORVAN_IOKIT_IOKITLIB_H_

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFRunLoop.h>
#include <mach/port.h>

typedef int kern_return_t;
typedef kern_return_t IOReturn;
typedef UInt32 IOOptionBits;
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;
typedef char io_name_t[128];
typedef struct IONotificationPort* IONotificationPortRef;
typedef void (*IOServiceMatchingCallback)(void* refcon, io_iterator_t iterator);

#define KERN_SUCCESS 0
#define IO_OBJECT_NULL ((io_object_t)0)

#define kIOFirstMatchNotification "IOServiceFirstMatch"
#define kIOTerminatedNotification "IOServiceTerminate"

// `mainPort` must be MACH_PORT_NULL. Null if the bus cannot be watched.
YORVAN_APPLE_EXPORT IONotificationPortRef IONotificationPortCreate(mach_port_t mainPort);
YORVAN_APPLE_EXPORT void IONotificationPortDestroy(IONotificationPortRef notify);
// The port owns the source and destroys it.
YORVAN_APPLE_EXPORT CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify);

YORVAN_APPLE_EXPORT CFMutableDictionaryRef IOServiceMatching(const char* name);

// Always consumes one reference to `matching`. Does not change *notification on an error. The notification is
// armed only after its iterator has been read to the end.
YORVAN_APPLE_EXPORT kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef notifyPort,
                                                                   const io_name_t notificationType,
                                                                   CFDictionaryRef matching,
                                                                   IOServiceMatchingCallback callback,
                                                                   void* refCon, io_iterator_t* notification);

// Returns the next object, which the caller releases; 0 at the end, and for a handle that is not an iterator.
YORVAN_APPLE_EXPORT io_object_t IOIteratorNext(io_iterator_t iterator);
YORVAN_APPLE_EXPORT kern_return_t IOObjectRelease(io_object_t object);

// Null if there is no such property. The caller releases the result.
YORVAN_APPLE_EXPORT CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                              CFAllocatorRef allocator, IOOptionBits options);

#endif  // YORVAN_IOKIT_IOKITLIB_H_
