// Devices in IOKit's registry.
#ifndef YORVAN_PORT_MACOS_REGISTRY_H_
#define YORVAN_PORT_MACOS_REGISTRY_H_

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/USB.h>
#include <mach/port.h>

namespace yusb::port {

// Finds every USB device of IOKit. False if IOKit cannot be queried; otherwise the caller releases the
// iterator.
inline bool find_devices(io_iterator_t* found) {
  // Not kIOUSBDeviceClassName: newer SDKs define that as another class than the library watches.
  return IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("IOUSBDevice"), found) ==
         KERN_SUCCESS;
}

// 0 if the registry has no location.
inline UInt32 location_of(io_service_t device) {
  SInt32 location = 0;
  const CFTypeRef property =
      IORegistryEntryCreateCFProperty(device, CFSTR(kUSBDevicePropertyLocationID), kCFAllocatorDefault, 0);
  if (property != nullptr) {
    CFNumberGetValue(static_cast<CFNumberRef>(property), kCFNumberSInt32Type, &location);
    CFRelease(property);
  }
  return static_cast<UInt32>(location);
}

}  // namespace yusb::port

#endif  // YORVAN_PORT_MACOS_REGISTRY_H_
