#pragma once
#include <IOKit/usb/USB.h>

// As in SDKs from 10.15 on: one name for two classes, selected by the deployment target.
#define kIOUSBHostDeviceClassName "IOUSBHostDevice"
#if __ENVIRONMENT_MAC_OS_X_VERSION_MIN_REQUIRED__ >= 101500
#define kIOUSBDeviceClassName kIOUSBHostDeviceClassName
#else
#define kIOUSBDeviceClassName "IOUSBDevice"
#endif
#define kIOUSBDeviceUserClientTypeID                                                                     \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0x9D, 0xC7, 0xB7, 0x80, 0x9E, 0xC0, 0x11, 0xD4, 0xA5, 0x4F, 0x00, \
                                 0x0A, 0x27, 0x05, 0x28, 0x61)
#define kIOUSBDeviceInterfaceID500                                                                          \
  CFUUIDGetConstantUUIDWithBytes(kCFAllocatorSystemDefault, 0xA3, 0x3C, 0xF0, 0x47, 0x4B, 0x5B, 0x48, 0xE2, \
                                 0xB5, 0x7D, 0x02, 0x07, 0xFC, 0xEA, 0xE1, 0x3B)

// Used below only as pointers.
typedef struct AbsoluteTimeStruct AbsoluteTime;
typedef struct NumVersionStruct NumVersion;
typedef struct IOUSBDevRequestTOStruct IOUSBDevRequestTO;
typedef struct IOUSBFindInterfaceRequestStruct IOUSBFindInterfaceRequest;
typedef struct IOUSBConfigurationDescriptorStruct* IOUSBConfigurationDescriptorPtr;
typedef void (*IOAsyncCallback1)(void* refcon, IOReturn result, void* arg0);

typedef struct IOUSBDeviceStruct500 {
  void* _reserved;
  HRESULT (*QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv);
  ULONG (*AddRef)(void* thisPointer);
  ULONG (*Release)(void* thisPointer);
  IOReturn (*CreateDeviceAsyncEventSource)(void* self, CFRunLoopSourceRef* source);
  CFRunLoopSourceRef (*GetDeviceAsyncEventSource)(void* self);
  IOReturn (*CreateDeviceAsyncPort)(void* self, mach_port_t* port);
  mach_port_t (*GetDeviceAsyncPort)(void* self);
  IOReturn (*USBDeviceOpen)(void* self);
  IOReturn (*USBDeviceClose)(void* self);
  IOReturn (*GetDeviceClass)(void* self, UInt8* devClass);
  IOReturn (*GetDeviceSubClass)(void* self, UInt8* devSubClass);
  IOReturn (*GetDeviceProtocol)(void* self, UInt8* devProtocol);
  IOReturn (*GetDeviceVendor)(void* self, UInt16* devVendor);
  IOReturn (*GetDeviceProduct)(void* self, UInt16* devProduct);
  IOReturn (*GetDeviceReleaseNumber)(void* self, UInt16* devRelNum);
  IOReturn (*GetDeviceAddress)(void* self, USBDeviceAddress* addr);
  IOReturn (*GetDeviceBusPowerAvailable)(void* self, UInt32* powerAvailable);
  IOReturn (*GetDeviceSpeed)(void* self, UInt8* devSpeed);
  IOReturn (*GetNumberOfConfigurations)(void* self, UInt8* numConfig);
  IOReturn (*GetLocationID)(void* self, UInt32* locationID);
  IOReturn (*GetConfigurationDescriptorPtr)(void* self, UInt8 configIndex,
                                            IOUSBConfigurationDescriptorPtr* desc);
  IOReturn (*GetConfiguration)(void* self, UInt8* configNum);
  IOReturn (*SetConfiguration)(void* self, UInt8 configNum);
  IOReturn (*GetBusFrameNumber)(void* self, UInt64* frame, AbsoluteTime* atTime);
  IOReturn (*ResetDevice)(void* self);
  IOReturn (*DeviceRequest)(void* self, IOUSBDevRequest* req);
  IOReturn (*DeviceRequestAsync)(void* self, IOUSBDevRequest* req, IOAsyncCallback1 callback, void* refCon);
  IOReturn (*CreateInterfaceIterator)(void* self, IOUSBFindInterfaceRequest* req, io_iterator_t* iter);
  IOReturn (*USBDeviceOpenSeize)(void* self);
  IOReturn (*DeviceRequestTO)(void* self, IOUSBDevRequestTO* req);
  IOReturn (*DeviceRequestAsyncTO)(void* self, IOUSBDevRequestTO* req, IOAsyncCallback1 callback,
                                   void* refCon);
  IOReturn (*USBDeviceSuspend)(void* self, Boolean suspend);
  IOReturn (*USBDeviceAbortPipeZero)(void* self);
  IOReturn (*USBGetManufacturerStringIndex)(void* self, UInt8* msi);
  IOReturn (*USBGetProductStringIndex)(void* self, UInt8* psi);
  IOReturn (*USBGetSerialNumberStringIndex)(void* self, UInt8* snsi);
  IOReturn (*USBDeviceReEnumerate)(void* self, UInt32 options);
  IOReturn (*GetBusMicroFrameNumber)(void* self, UInt64* microFrame, AbsoluteTime* atTime);
  IOReturn (*GetIOUSBLibVersion)(void* self, NumVersion* ioUSBLibVersion, NumVersion* usbFamilyVersion);
  IOReturn (*GetBusFrameNumberWithTime)(void* self, UInt64* frame, AbsoluteTime* atTime);
  IOReturn (*GetUSBDeviceInformation)(void* self, UInt32* info);
  IOReturn (*RequestExtraPower)(void* self, UInt32 type, UInt32 requestedPower, UInt32* powerAvailable);
  IOReturn (*ReturnExtraPower)(void* self, UInt32 type, UInt32 powerReturned);
  IOReturn (*GetExtraPowerAllocated)(void* self, UInt32 type, UInt32* powerAllocated);
  IOReturn (*GetBandwidthAvailableForDevice)(void* self, UInt32* bandwidth);
} IOUSBDeviceInterface500;
