#ifndef YORVAN_COREFOUNDATION_CFDICTIONARY_H_
#define YORVAN_COREFOUNDATION_CFDICTIONARY_H_

#include <CoreFoundation/CFBase.h>

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

#endif  // YORVAN_COREFOUNDATION_CFDICTIONARY_H_
