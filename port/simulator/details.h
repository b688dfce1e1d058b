// The details of a simulated device, from its description.
#ifndef YORVAN_PORT_SIMULATOR_DETAILS_H_
#define YORVAN_PORT_SIMULATOR_DETAILS_H_

#include <yusb_simulator.h>

namespace yusb::port {

// All but the strings. `id` is what the simulator calls the device.
usb_details simulated_details(const simulated_device& described, int id);

}  // namespace yusb::port

#endif  // YORVAN_PORT_SIMULATOR_DETAILS_H_
