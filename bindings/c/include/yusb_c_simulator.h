// A simulated USB bus for tests: plug and unplug described devices. Needs no root and no hardware. Where
// there is no simulated bus (macOS), every function here returns YUSB_UNSUPPORTED.
//
//   yusb_simulator* bus = NULL;
//   int phone = 0;
//   yusb_simulator_create(&bus);  // the library's bus from the next yusb_start on
//   yusb_start();
//   yusb_simulator_plug(bus, &(yusb_simulated_device){.size = sizeof(yusb_simulated_device), .vendor =
//   0x18D1,
//                                                     .product = 0x4EE7, .port_path = "1-2"}, &phone);
//   yusb_settle(1000);            // the list and every queue know of it now
//   yusb_simulator_unplug(bus, phone);
//   yusb_stop();
//   yusb_simulator_free(bus);
#ifndef YUSB_C_SIMULATOR_H_
#define YUSB_C_SIMULATOR_H_

#include "yusb_c.h"

#ifdef __cplusplus
extern "C" {
#endif

// A simulated bus. One at a time. All functions but yusb_simulator_free may be called from any thread.
typedef struct yusb_simulator yusb_simulator;

typedef struct yusb_simulated_device {
  size_t size;
  uint16_t vendor;           // idVendor
  uint16_t product;          // idProduct
  uint16_t release;          // bcdDevice
  uint32_t location;         // the location ID; 0: that of port_path on Linux
  const char* port_path;     // null: made from the location
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
  int64_t openable_after;            // milliseconds after its arrival when it can be opened; negative: when
                                     // yusb_simulator_open_node says so
} yusb_simulated_device;

// Makes a simulated bus; free it with yusb_simulator_free. It is what the library watches from its next start
// on, and until then nothing changes.
// YUSB_BUSY if there is one already; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_create(yusb_simulator** simulator);

// Frees it; the host's own bus is the library's again.
// YUSB_BUSY while the library is started: the simulator is not freed.
YUSB_C_EXPORT yusb_status yusb_simulator_free(yusb_simulator* simulator);

// Attaches a device, and stores its number, which is never 0.
// YUSB_INVALID_ARGUMENT also if there is neither a location nor a port path; YUSB_OUT_OF_MEMORY,
// YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_simulator_plug(yusb_simulator* simulator, const yusb_simulated_device* device,
                                              int* id);

// Detaches a device.
// YUSB_GONE if it is not attached; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_unplug(yusb_simulator* simulator, int id);

// Lets a device be opened from now on.
// YUSB_GONE if it is not attached; YUSB_OUT_OF_MEMORY.
YUSB_C_EXPORT yusb_status yusb_simulator_open_node(yusb_simulator* simulator, int id);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_SIMULATOR_H_
