#ifndef YORVAN_COREFOUNDATION_COREFOUNDATION_H_
#define YORVAN_COREFOUNDATION_COREFOUNDATION_H_

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFUUID.h>

#endif  // YORVAN_COREFOUNDATION_COREFOUNDATION_H_
