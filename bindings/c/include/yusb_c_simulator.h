// A simulated USB bus for tests: attach and detach simulated devices. It needs no root access and no
// hardware. On macOS, which has no simulated bus, every function here returns YUSB_UNSUPPORTED.
//
//   yusb_simulator* bus = NULL;
//   int phone = 0;
//   yusb_simulator_create(&bus);  // the library's bus from the next yusb_start on
//   yusb_start();
//   const yusb_simulated_device pixel = {
//       .size = sizeof pixel, .vendor = 0x18D1, .product = 0x4EE7, .port_path = "1-2"};
//   yusb_simulator_plug(bus, &pixel, &phone);
//   yusb_settle(1000);            // until the phone is in the list and in every queue
//   yusb_simulator_unplug(bus, phone);
//   yusb_stop();
//   yusb_simulator_free(bus);
#ifndef YUSB_C_SIMULATOR_H_
#define YUSB_C_SIMULATOR_H_

#include "yusb_c.h"

#ifdef __cplusplus
extern "C" {
#endif

// A simulated bus. Only one may exist. All functions except yusb_simulator_free may be called from any
// thread.
typedef struct yusb_simulator yusb_simulator;

typedef struct yusb_simulated_device {
  size_t size;
  uint16_t vendor;           // idVendor
  uint16_t product;          // idProduct
  uint16_t release;          // bcdDevice
  uint32_t location;         // the location ID; 0: that of port_path on Linux
  const char* port_path;     // null: derived from the location
  const char* manufacturer;  // null: the device has no such string
  const char* product_name;
  const char* serial_number;
  double speed;          // in Mbit/s; 0: 480
  uint16_t usb_version;  // bcdUSB; 0: 0x0200
  uint8_t class_code;    // bDeviceClass
  uint8_t subclass;
  uint8_t protocol;
  uint16_t max_power;  // in mA; 0: 500
  size_t interface_count;
  const yusb_interface* interfaces;  // null names and drivers are empty
  int64_t openable_after;            // milliseconds from its arrival until it can be opened; negative: not
                                     // before yusb_simulator_open_node
} yusb_simulated_device;

// Creates a simulated bus; free it with yusb_simulator_free. The library watches it from its next start on; a
// running library is not affected.
// YUSB_BUSY if one exists already; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_create(yusb_simulator** simulator);

// Frees the simulated bus. From then on the library watches the host's bus again.
// YUSB_BUSY while the library is started: the simulator is not freed.
YUSB_C_EXPORT yusb_status yusb_simulator_free(yusb_simulator* simulator);

// Attaches a device, and stores its ID, which is never 0.
// YUSB_INVALID_ARGUMENT also if the device has neither a location nor a port path; YUSB_OUT_OF_MEMORY,
// YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_simulator_plug(yusb_simulator* simulator, const yusb_simulated_device* device,
                                              int* id);

// Detaches a device.
// YUSB_GONE if it is not attached; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_unplug(yusb_simulator* simulator, int id);

// Makes a device openable.
// YUSB_GONE if it is not attached; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_open_node(yusb_simulator* simulator, int id);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_SIMULATOR_H_
