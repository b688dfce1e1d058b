#include "simulated_bus.h"

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
    described.port_path = device.path;
    described.class_code = device.class_code;
    described.subclass = device.subclass;
    described.protocol = device.protocol;
    described.speed = device.speed;
    described.interfaces = device.interfaces;
    described.openable_after = device.openable_after;
    return _simulator.plug(described);
  }

  void unplug(int number) override { _simulator.unplug(number); }

 private:
  simulator _simulator;
};

}  // namespace

std::unique_ptr<simulated_bus> make_simulated_bus() { return std::make_unique<bus>(); }

}  // namespace yusb::tool

#else

std::unique_ptr<yusb::tool::simulated_bus> yusb::tool::make_simulated_bus() { return nullptr; }

#endif
