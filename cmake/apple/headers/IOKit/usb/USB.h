#pragma once
#include <IOKit/IOKitLib.h>

#define kUSBDevicePropertyLocationID "locationID"
typedef UInt16 USBDeviceAddress;
typedef struct {
  UInt8 bmRequestType;
  UInt8 bRequest;
  UInt16 wValue;
  UInt16 wIndex;
  UInt16 wLength;
  void* pData;
  UInt32 wLenDone;
} IOUSBDevRequest;
