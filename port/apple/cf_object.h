// The reference counts behind CFTypeRef.
#ifndef YORVAN_PORT_APPLE_CF_OBJECT_H_
#define YORVAN_PORT_APPLE_CF_OBJECT_H_

#include <atomic>

namespace yusb::port {

// The base of the objects that CFTypeRefs point to.
struct cf_object {
  std::atomic<unsigned> references{1};
  virtual ~cf_object() = default;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_CF_OBJECT_H_
