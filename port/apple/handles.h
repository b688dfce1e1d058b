// The handles behind io_object_t.
#ifndef YORVAN_PORT_APPLE_HANDLES_H_
#define YORVAN_PORT_APPLE_HANDLES_H_

#include <memory>

#include <IOKit/IOKitLib.h>

namespace yusb::port {

// The base of the objects behind io_object_t.
struct io_object {
  virtual ~io_object() = default;
};

// Returns a new handle, which keeps the object alive until IOObjectRelease.
io_object_t make_handle(std::shared_ptr<io_object> what);
// Null if the handle is invalid or of an object of another type.
std::shared_ptr<io_object> find_handle(io_object_t handle);

template <typename T>
std::shared_ptr<T> find(io_object_t handle) {
  return std::dynamic_pointer_cast<T>(find_handle(handle));
}

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_HANDLES_H_
