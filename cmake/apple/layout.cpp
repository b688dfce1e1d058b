// Asserts the published types, layouts and values of the names that the backend uses. It is compiled against
// the headers of port/apple and of cmake/apple/headers, for the host and for both of macOS's processors, and
// not run.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/IOUSBLib.h>
#include <mach/port.h>

namespace {

template <typename A, typename B>
constexpr bool same = false;
template <typename A>
constexpr bool same<A, A> = true;

#define IS(name, type) static_assert(same<name, type>)
#define LIES(structure, member, offset) static_assert(__builtin_offsetof(structure, member) == (offset))
#define TAKES(function, ...) static_assert(same<decltype(function), __VA_ARGS__>)

IS(UInt16, unsigned short);
IS(UInt32, unsigned int);
IS(SInt32, int);
IS(CFIndex, long);
IS(CFRunLoopRef, struct __CFRunLoop*);
IS(CFMutableDictionaryRef, struct __CFDictionary*);
IS(CFDictionaryRef, const struct __CFDictionary*);
IS(IOReturn, int);
IS(HRESULT, int);
IS(io_object_t, unsigned int);
IS(io_name_t, char[128]);
IS(REFIID, CFUUIDBytes);
static_assert(sizeof(CFNumberType) == 8 && kCFNumberSInt32Type == 3);

TAKES(IONotificationPortCreate, IONotificationPortRef(mach_port_t));
TAKES(CFRunLoopAddSource, void(CFRunLoopRef, CFRunLoopSourceRef, CFStringRef));
TAKES(CFNumberGetValue, Boolean(CFNumberRef, CFNumberType, void*));
TAKES(IOServiceAddMatchingNotification, kern_return_t(IONotificationPortRef, const char*, CFDictionaryRef,
                                                      IOServiceMatchingCallback, void*, io_iterator_t*));
#ifndef YORVAN_IOKIT_IOKITLIB_H_  // port/apple lacks what only the bus library on macOS uses
TAKES(IOServiceGetMatchingServices, kern_return_t(mach_port_t, CFDictionaryRef, io_iterator_t*));
#endif
TAKES(IORegistryEntryCreateCFProperty, CFTypeRef(unsigned int, CFStringRef, CFAllocatorRef, UInt32));
TAKES(IOCreatePlugInInterfaceForService,
      kern_return_t(io_service_t, CFUUIDRef, CFUUIDRef, IOCFPlugInInterface***, SInt32*));

static_assert(sizeof(CFUUIDBytes) == 16 && alignof(CFUUIDBytes) == 1);

static_assert(sizeof(IOUSBDevRequest) == 24 && alignof(IOUSBDevRequest) == 8);
LIES(IOUSBDevRequest, wLength, 6);
LIES(IOUSBDevRequest, pData, 8);
LIES(IOUSBDevRequest, wLenDone, 16);

static_assert(sizeof(IOCFPlugInInterface) == 64);
LIES(IOCFPlugInInterface, QueryInterface, 8);
LIES(IOCFPlugInInterface, Release, 24);
LIES(IOCFPlugInInterface, revision, 34);
LIES(IOCFPlugInInterface, Stop, 56);

IS(IOUSBDeviceInterface500, struct IOUSBDeviceStruct500);
static_assert(sizeof(IOUSBDeviceStruct500) == 46 * 8);
LIES(IOUSBDeviceStruct500, QueryInterface, 8);
LIES(IOUSBDeviceStruct500, Release, 24);
LIES(IOUSBDeviceStruct500, GetDeviceVendor, 104);
LIES(IOUSBDeviceStruct500, GetDeviceProduct, 112);
LIES(IOUSBDeviceStruct500, GetDeviceReleaseNumber, 120);
LIES(IOUSBDeviceStruct500, GetLocationID, 160);
LIES(IOUSBDeviceStruct500, DeviceRequest, 208);
LIES(IOUSBDeviceStruct500, USBGetManufacturerStringIndex, 272);
LIES(IOUSBDeviceStruct500, USBGetProductStringIndex, 280);
LIES(IOUSBDeviceStruct500, USBGetSerialNumberStringIndex, 288);
TAKES(IOUSBDeviceStruct500::DeviceRequest, IOReturn (*)(void*, IOUSBDevRequest*));
TAKES(IOUSBDeviceStruct500::GetLocationID, IOReturn (*)(void*, UInt32*));
TAKES(IOUSBDeviceStruct500::QueryInterface, HRESULT (*)(void*, CFUUIDBytes, void**));

// ---- Values ----

constexpr bool equal(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}
static_assert(equal(kIOFirstMatchNotification, "IOServiceFirstMatch"));
static_assert(equal(kIOTerminatedNotification, "IOServiceTerminate"));
static_assert(equal(kUSBDevicePropertyLocationID, "locationID"));
static_assert(MACH_PORT_NULL == 0 && IO_OBJECT_NULL == 0 && KERN_SUCCESS == 0);

constexpr bool is_uuid(const UInt8 (&bytes)[16], const char* published) {
  for (int digit = 0; digit < 32; ++digit) {
    if (*published == '-') ++published;
    const UInt8 byte = bytes[digit / 2];
    if (*published++ != "0123456789ABCDEF"[digit % 2 == 0 ? byte >> 4 : byte & 0xF]) return false;
  }
  return *published == '\0';
}
// Converts the expansion of the macros to bytes.
#define CFUUIDGetConstantUUIDWithBytes(allocator, ...) \
  { __VA_ARGS__ }
#define IS_UUID(name, published)        \
  constexpr UInt8 name##Bytes[] = name; \
  static_assert(is_uuid(name##Bytes, published))
IS_UUID(kIOUSBDeviceUserClientTypeID, "9DC7B780-9EC0-11D4-A54F-000A27052861");
IS_UUID(kIOCFPlugInInterfaceID, "C244E858-109C-11D4-91D4-0050E4C6426F");
IS_UUID(kIOUSBDeviceInterfaceID500, "A33CF047-4B5B-48E2-B57D-0207FCEAE13B");

}  // namespace
