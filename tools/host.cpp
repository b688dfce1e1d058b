#include "host.h"

#if __has_include(<yusb_simulator.h>)

#include <yusb_simulator.h>

namespace yusb::tool {

namespace {

class bus : public simulated_bus {
 public:
  int plug(const scenario_device& device) override {
    simulated_device described;
    described.vendor = device.vendor;
    described.product = device.product;
    described.release = device.release;
    described.location = device.location;
    described.manufacturer = device.manufacturer;
    described.product_name = device.product_name;
    described.serial_number = device.serial_number;
    return _simulator.plug(described);
  }

  void unplug(int number) override { _simulator.unplug(number); }

 private:
  simulator _simulator;
};

}  // namespace

bool has_bus() { return bus_present(); }

bool settle(std::chrono::milliseconds limit) { return bus_settle(limit); }

std::unique_ptr<simulated_bus> make_simulated_bus() { return std::make_unique<bus>(); }

}  // namespace yusb::tool

#else

#include <algorithm>

#include <yusb_watcher.h>

namespace yusb::tool {

bool has_bus() { return true; }

bool settle(std::chrono::milliseconds limit) {
  // Nothing tells when the first enumeration is over: it is held to be when nothing has arrived for a while.
  constexpr std::chrono::milliseconds quiet(500);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  watch_queue arrivals;
  while (arrivals.next(std::min(quiet, limit))) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
  }
  return true;
}

std::unique_ptr<simulated_bus> make_simulated_bus() { return nullptr; }

}  // namespace yusb::tool

#endif
