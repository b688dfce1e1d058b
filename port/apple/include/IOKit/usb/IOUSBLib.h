#ifndef YORVAN_IOKIT_USB_IOUSBLIB_H_
#define YORVAN_IOKIT_USB_IOUSBLIB_H_

#include <CoreFoundation/CFPlugInCOM.h>
#include <IOKit/usb/USB.h>

#define kIOUSBDeviceUserClientTypeID                                                                        \
  CFUUIDGetConstantUUIDWithBytes(nullptr, 0x9D, 0xC7, 0xB7, 0x80, 0x9E, 0xC0, 0x11, 0xD4, 0xA5, 0x4F, 0x00, \
                                 0x0A, 0x27, 0x05, 0x28, 0x61)
#define kIOUSBDeviceInterfaceID500                                                                          \
  CFUUIDGetConstantUUIDWithBytes(kCFAllocatorSystemDefault, 0xA3, 0x3C, 0xF0, 0x47, 0x4B, 0x5B, 0x48, 0xE2, \
                                 0xB5, 0x7D, 0x02, 0x07, 0xFC, 0xEA, 0xE1, 0x3B)

// 46 slots. Those that the backend does not use keep their positions but not their types.
typedef struct IOUSBDeviceStruct500 {
  void* _reserved;
  HRESULT (*QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv);
  ULONG (*AddRef)(void* thisPointer);
  ULONG (*Release)(void* thisPointer);
  void* _unused4to12[9];
  IOReturn (*GetDeviceVendor)(void* self, UInt16* devVendor);
  IOReturn (*GetDeviceProduct)(void* self, UInt16* devProduct);
  IOReturn (*GetDeviceReleaseNumber)(void* self, UInt16* devRelNum);
  void* _unused16to19[4];
  IOReturn (*GetLocationID)(void* self, UInt32* locationID);
  void* _unused21to25[5];
  IOReturn (*DeviceRequest)(void* self, IOUSBDevRequest* req);
  void* _unused27to33[7];
  IOReturn (*USBGetManufacturerStringIndex)(void* self, UInt8* msi);
  IOReturn (*USBGetProductStringIndex)(void* self, UInt8* psi);
  IOReturn (*USBGetSerialNumberStringIndex)(void* self, UInt8* snsi);
  void* _unused37to45[9];
} IOUSBDeviceInterface500;

#endif  // YORVAN_IOKIT_USB_IOUSBLIB_H_
