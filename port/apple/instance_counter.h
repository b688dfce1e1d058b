// Counts the living objects of each kind, to find those that a host has not released.
#ifndef YORVAN_PORT_APPLE_INSTANCE_COUNTER_H_
#define YORVAN_PORT_APPLE_INSTANCE_COUNTER_H_

#include <cstddef>

namespace yusb::port {

enum class object_kind : std::size_t {
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

// Counts an object while it exists; see simulator::leaks.
class instance_counter {
 public:
  explicit instance_counter(object_kind kind);
  ~instance_counter();
  instance_counter(const instance_counter&) = delete;
  instance_counter& operator=(const instance_counter&) = delete;

 private:
  const object_kind _kind;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_INSTANCE_COUNTER_H_
