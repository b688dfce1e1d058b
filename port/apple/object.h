// Objects behind Apple's names: reference counts, handles, and a census of what is alive.
#ifndef YORVAN_PORT_APPLE_OBJECT_H_
#define YORVAN_PORT_APPLE_OBJECT_H_

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

#include <IOKit/IOKitLib.h>

#include "bus/immortal.h"

namespace yusb::port {

// What may be left over when a host forgets to give it back.
enum class kind : std::size_t {
  number,
  matching_dictionary,
  run_loop,
  notification_port,
  iterator,
  service,
  plugin,
  device_interface,
  count,
};

const char* name_of(kind which);
long alive(kind which);

// Counts an object for as long as it lives.
class counted {
 public:
  explicit counted(kind which);
  ~counted();
  counted(const counted&) = delete;
  counted& operator=(const counted&) = delete;

 private:
  const kind _kind;
};

// What every CFTypeRef points to.
struct object {
  std::atomic<unsigned> references{1};
  virtual ~object() = default;
};

// What every io_object_t stands for.
struct io_object {
  virtual ~io_object() = default;
};

// Gives the object a handle, never used before, that keeps it alive until IOObjectRelease.
io_object_t make_handle(std::shared_ptr<io_object> what);
// Null if the handle stands for nothing, or for something else.
std::shared_ptr<io_object> find_handle(io_object_t handle);
// False if the handle stands for nothing.
bool drop_handle(io_object_t handle);

template <typename T>
std::shared_ptr<T> find(io_object_t handle) {
  return std::dynamic_pointer_cast<T>(find_handle(handle));
}

// Announces a call to whoever listens; false if it is to fail. See simulator::before_calls.
using call_hook = std::function<bool(const char* call)>;
bool calling(const char* call);
void set_call_hook(call_hook hook);

// Ends the process with a line that says why, as Apple's layer does on the same misuse.
[[noreturn]] void misuse(const char* what);

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_OBJECT_H_
