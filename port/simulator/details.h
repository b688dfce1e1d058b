// The details of a simulated device, from its description.
#ifndef YORVAN_PORT_SIMULATOR_DETAILS_H_
#define YORVAN_PORT_SIMULATOR_DETAILS_H_

#include <yusb_simulator.h>

namespace yusb::port {

// Returns all details except the strings. `id` is the simulator's ID of the device.
usb_details simulated_details(const simulated_device& described, int id);

}  // namespace yusb::port

#endif  // YORVAN_PORT_SIMULATOR_DETAILS_H_
