#include <yusb_c_simulator.h>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include <yusb_location.h>
#include <yusb_simulator.h>

#include "convert.h"
#include "life.h"

using namespace yusb::c;

struct yusb_simulator {
  const in_use used;
  yusb::simulator bus;
};

namespace {

std::atomic<bool> _exists{false};

yusb_status read_simulated(const yusb_simulated_device* device, yusb::simulated_device* made) {
  yusb_simulated_device given;
  if (const yusb_status status = read_structure(device, &given)) return status;
  const auto optional = [](const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
  };
  const auto text = [](const char* given_text) { return given_text == nullptr ? "" : given_text; };
  for (const char* each : {given.port_path, given.manufacturer, given.product_name, given.serial_number}) {
    if (!is_utf8(each)) return YUSB_INVALID_ARGUMENT;
  }
  made->vendor = given.vendor;
  made->product = given.product;
  made->release = given.release;
  made->location = given.location;
  made->port_path = text(given.port_path);
  if (given.location == 0) {
    const auto location = yusb::location_of_path(made->port_path);
    if (!location) return YUSB_INVALID_ARGUMENT;
    made->location = *location;
  }
  made->manufacturer = optional(given.manufacturer);
  made->product_name = optional(given.product_name);
  made->serial_number = optional(given.serial_number);
  if (given.speed != 0) made->speed = given.speed;
  if (given.usb_version != 0) made->usb_version = given.usb_version;
  if (given.max_power != 0) made->max_power = given.max_power;
  made->class_code = given.class_code;
  made->subclass = given.subclass;
  made->protocol = given.protocol;
  made->openable_after.reset();
  if (given.openable_after >= 0) made->openable_after = limit_of(given.openable_after);

  std::vector<yusb_interface> interfaces;
  if (const yusb_status status = read_structures(given.interfaces, given.interface_count, &interfaces))
    return status;
  for (const yusb_interface& each : interfaces) {
    if (!is_utf8(each.name) || !is_utf8(each.driver)) return YUSB_INVALID_ARGUMENT;
    made->interfaces.push_back(
        {each.number, each.class_code, each.subclass, each.protocol, text(each.name), text(each.driver)});
  }
  return YUSB_OK;
}

// Calls `function` with a simulator and returns its status.
template <typename Function>
yusb_status on(yusb_simulator* simulator, Function function) {
  if (simulator == nullptr) return YUSB_INVALID_ARGUMENT;
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] { return function(simulator->bus); });
}

}  // namespace

yusb_status yusb_simulator_create(yusb_simulator** simulator) {
  if (simulator == nullptr) return YUSB_INVALID_ARGUMENT;
  *simulator = nullptr;
  if (is_forked()) return YUSB_FORKED;
  if (_exists.exchange(true)) return YUSB_BUSY;
  const yusb_status status = without_exceptions([&] {
    *simulator = new yusb_simulator;
    return YUSB_OK;
  });
  if (status != YUSB_OK) _exists = false;
  return status;
}

yusb_status yusb_simulator_free(yusb_simulator* simulator) {
  if (simulator == nullptr) return YUSB_OK;
  if (const yusb_status status = may_wait()) return status;
  if (is_started()) return YUSB_BUSY;
  delete simulator;
  _exists = false;
  return YUSB_OK;
}

yusb_status yusb_simulator_plug(yusb_simulator* simulator, const yusb_simulated_device* device, int* id) {
  if (id == nullptr) return YUSB_INVALID_ARGUMENT;
  *id = 0;
  if (device == nullptr) return YUSB_INVALID_ARGUMENT;
  return on(simulator, [&](yusb::simulator& bus) {
    yusb::simulated_device made;
    if (const yusb_status status = read_simulated(device, &made)) return status;
    *id = bus.plug(made);
    return YUSB_OK;
  });
}

yusb_status yusb_simulator_unplug(yusb_simulator* simulator, int id) {
  return on(simulator, [id](yusb::simulator& bus) { return bus.unplug(id) ? YUSB_OK : YUSB_GONE; });
}

yusb_status yusb_simulator_open_node(yusb_simulator* simulator, int id) {
  return on(simulator, [id](yusb::simulator& bus) { return bus.open_node(id) ? YUSB_OK : YUSB_GONE; });
}
