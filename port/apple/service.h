// A service: one device that an iterator returns.
#ifndef YORVAN_PORT_APPLE_SERVICE_H_
#define YORVAN_PORT_APPLE_SERVICE_H_

#include <memory>
#include <utility>

#include "apple/handles.h"
#include "apple/instance_counter.h"
#include "bus/bus.h"

namespace yusb::port {

struct service : io_object {
  explicit service(std::shared_ptr<device> which) : attached(std::move(which)) {}
  const std::shared_ptr<device> attached;
  instance_counter counter{object_kind::service};
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_SERVICE_H_
