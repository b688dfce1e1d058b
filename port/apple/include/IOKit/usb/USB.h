#ifndef YORVAN_IOKIT_USB_USB_H_
#define YORVAN_IOKIT_USB_USB_H_

#include <IOKit/IOKitLib.h>

#define kUSBDevicePropertyLocationID "locationID"

// Numbers in the host's byte order.
typedef struct {
  UInt8 bmRequestType;
  UInt8 bRequest;
  UInt16 wValue;
  UInt16 wIndex;
  UInt16 wLength;
  void* pData;
  UInt32 wLenDone;
} IOUSBDevRequest;

#endif  // YORVAN_IOKIT_USB_USB_H_
