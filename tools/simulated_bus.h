// The simulated bus, on hosts whose bus library has one.
#ifndef YUSB_TOOLS_SIMULATED_BUS_H_
#define YUSB_TOOLS_SIMULATED_BUS_H_

#include <memory>

#include "scenario.h"

namespace yusb::tool {

// Replaces the library's bus from the next yusb::global_initialize on. Destroy it after yusb::global_release.
class simulated_bus {
 public:
  virtual ~simulated_bus() = default;
  virtual int plug(const scenario_device& device) = 0;  // returns the device's number
  virtual void unplug(int number) = 0;
};

// Whether the bus library of this host has a simulated bus. macOS has none.
#if __has_include(<yusb_simulator.h>)
constexpr bool has_simulated_bus = true;
#else
constexpr bool has_simulated_bus = false;
#endif

// Null on a host without a simulated bus.
std::unique_ptr<simulated_bus> make_simulated_bus();

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_SIMULATED_BUS_H_
