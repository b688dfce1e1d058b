#include "apple/cf_object.h"

#include <CoreFoundation/CoreFoundation.h>

#include "apple/misuse.h"

using yusb::port::cf_object;
using yusb::port::misuse;

CFTypeRef CFRetain(CFTypeRef cf) {
  if (cf == nullptr) misuse("CFRetain() called with null");
  auto* object = static_cast<cf_object*>(const_cast<void*>(cf));
  object->references.fetch_add(1, std::memory_order_relaxed);
  return cf;
}

void CFRelease(CFTypeRef cf) {
  if (cf == nullptr) misuse("CFRelease() called with null");
  auto* object = static_cast<cf_object*>(const_cast<void*>(cf));
  if (object->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
}
