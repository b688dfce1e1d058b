// Devices in IOKit's registry.
#ifndef YORVAN_PORT_MACOS_REGISTRY_H_
#define YORVAN_PORT_MACOS_REGISTRY_H_

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/USB.h>
#include <mach/port.h>

#include <optional>

namespace yusb::port {

// Finds every USB device of IOKit. False if IOKit cannot be queried; otherwise the caller releases the
// iterator.
inline bool find_devices(io_iterator_t* found) {
  // Not kIOUSBDeviceClassName: newer SDKs define that as another class than the library watches.
  return IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("IOUSBDevice"), found) ==
         KERN_SUCCESS;
}

// A number of a device; empty if the registry has none.
inline std::optional<UInt32> number_of(io_service_t device, CFStringRef name) {
  const CFTypeRef property = IORegistryEntryCreateCFProperty(device, name, kCFAllocatorDefault, 0);
  if (property == nullptr) return std::nullopt;
  SInt32 number = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(property), kCFNumberSInt32Type, &number);
  CFRelease(property);
  return static_cast<UInt32>(number);
}

// 0 if the registry has none.
inline UInt32 location_of(io_service_t device) {
  return number_of(device, CFSTR(kUSBDevicePropertyLocationID)).value_or(0);
}

}  // namespace yusb::port

#endif  // YORVAN_PORT_MACOS_REGISTRY_H_
