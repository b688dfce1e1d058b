// The simulator functions on platforms without a simulated bus.
#include <yusb_c_simulator.h>

yusb_status yusb_simulator_create(yusb_simulator** simulator) {
  if (simulator == nullptr) return YUSB_INVALID_ARGUMENT;
  *simulator = nullptr;
  return YUSB_UNSUPPORTED;
}

yusb_status yusb_simulator_free(yusb_simulator*) { return YUSB_UNSUPPORTED; }

yusb_status yusb_simulator_plug(yusb_simulator*, const yusb_simulated_device*, int* id) {
  if (id == nullptr) return YUSB_INVALID_ARGUMENT;
  *id = 0;
  return YUSB_UNSUPPORTED;
}

yusb_status yusb_simulator_unplug(yusb_simulator*, int) { return YUSB_UNSUPPORTED; }

yusb_status yusb_simulator_open_node(yusb_simulator*, int) { return YUSB_UNSUPPORTED; }
