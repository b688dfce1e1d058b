// What differs between hosts: whether there is a simulated bus to put in the place of the real one.
#ifndef YUSB_TOOLS_HOST_H_
#define YUSB_TOOLS_HOST_H_

#include <memory>

#include "scenario.h"

namespace yusb::tool {

// The library's bus from the next yusb::global_initialize on. Destroy it after yusb::global_release.
class simulated_bus {
 public:
  virtual ~simulated_bus() = default;
  virtual int plug(const scenario_device& device) = 0;  // returns the device's number
  virtual void unplug(int number) = 0;
};

// Null on a host where the library has no simulated bus.
std::unique_ptr<simulated_bus> make_simulated_bus();

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_HOST_H_
