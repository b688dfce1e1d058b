#ifndef YORVAN_COREFOUNDATION_CFSTRING_H_
#define YORVAN_COREFOUNDATION_CFSTRING_H_

#include <CoreFoundation/CFBase.h>

// Returns a string that is never destroyed; one object for equal strings.
#define CFSTR(text) __CFStringMakeConstantString("" text "")
YORVAN_APPLE_EXPORT CFStringRef __CFStringMakeConstantString(const char* text);

#endif  // YORVAN_COREFOUNDATION_CFSTRING_H_
