#ifndef YORVAN_IOKIT_IOCFPLUGIN_H_
#define YORVAN_IOKIT_IOCFPLUGIN_H_

#include <CoreFoundation/CFPlugInCOM.h>
#include <IOKit/IOKitLib.h>

#define kIOCFPlugInInterfaceID                                                                              \
  CFUUIDGetConstantUUIDWithBytes(nullptr, 0xC2, 0x44, 0xE8, 0x58, 0x10, 0x9C, 0x11, 0xD4, 0x91, 0xD4, 0x00, \
                                 0x50, 0xE4, 0xC6, 0x42, 0x6F)

typedef struct IOCFPlugInInterfaceStruct {
  void* _reserved;
  HRESULT (*QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv);
  ULONG (*AddRef)(void* thisPointer);
  ULONG (*Release)(void* thisPointer);
  UInt16 version;
  UInt16 revision;
  IOReturn (*Probe)(void* thisPointer, CFDictionaryRef propertyTable, io_service_t service, SInt32* order);
  IOReturn (*Start)(void* thisPointer, CFDictionaryRef propertyTable, io_service_t service);
  IOReturn (*Stop)(void* thisPointer);
} IOCFPlugInInterface;

// Stores the interface and the score only on success. Neither pointer may be null.
YORVAN_APPLE_EXPORT kern_return_t IOCreatePlugInInterfaceForService(io_service_t service,
                                                                    CFUUIDRef pluginType,
                                                                    CFUUIDRef interfaceType,
                                                                    IOCFPlugInInterface*** theInterface,
                                                                    SInt32* theScore);

#endif  // YORVAN_IOKIT_IOCFPLUGIN_H_
