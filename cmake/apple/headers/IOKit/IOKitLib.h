#pragma once
#include <CoreFoundation/CFBase.h>
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
#define kIOReturnSuccess KERN_SUCCESS
#define IO_OBJECT_NULL ((io_object_t)0)
#define kIOServicePlane "IOService"
#define kIOFirstMatchNotification "IOServiceFirstMatch"
#define kIOTerminatedNotification "IOServiceTerminate"
APPLE_EXPORT const mach_port_t kIOMasterPortDefault
    __attribute__((availability(macos, introduced = 10.0, deprecated = 12.0)));
APPLE_EXPORT const mach_port_t kIOMainPortDefault __attribute__((availability(macos, introduced = 12.0)));
APPLE_EXPORT IONotificationPortRef IONotificationPortCreate(mach_port_t mainPort);
APPLE_EXPORT void IONotificationPortDestroy(IONotificationPortRef notify);
APPLE_EXPORT CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify);
APPLE_EXPORT CFMutableDictionaryRef IOServiceMatching(const char* name);
APPLE_EXPORT kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                                        io_iterator_t* existing);
APPLE_EXPORT kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef notifyPort,
                                                            const io_name_t notificationType,
                                                            CFDictionaryRef matching,
                                                            IOServiceMatchingCallback callback, void* refCon,
                                                            io_iterator_t* notification);
APPLE_EXPORT io_object_t IOIteratorNext(io_iterator_t iterator);
APPLE_EXPORT kern_return_t IOObjectRelease(io_object_t object);
APPLE_EXPORT kern_return_t IOObjectGetClass(io_object_t object, io_name_t className);
APPLE_EXPORT kern_return_t IORegistryEntryGetChildIterator(io_registry_entry_t entry, const io_name_t plane,
                                                           io_iterator_t* iterator);
APPLE_EXPORT CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                       CFAllocatorRef allocator, IOOptionBits options);
