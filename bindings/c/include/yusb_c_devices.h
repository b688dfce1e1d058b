// The library for C: statuses, start and stop, devices and their details. Include <yusb_c.h>.
#ifndef YUSB_C_DEVICES_H_
#define YUSB_C_DEVICES_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) && !defined(YUSB_STATIC)
#define YUSB_C_EXPORT __attribute__((visibility("default")))
#else
#define YUSB_C_EXPORT
#endif

// True if a structure from the library has a member: YUSB_HAS(yusb_device, tags, device).
#define YUSB_HAS(type, member, pointer) \
  ((pointer)->size >= offsetof(type, member) + sizeof((pointer)->member))

#ifdef __cplusplus
extern "C" {
#endif

typedef enum yusb_status {
  YUSB_OK = 0,
  YUSB_TIMED_OUT = 1,         // the time limit has passed
  YUSB_CLOSED = 2,            // the queue is closed, and nothing is left in it
  YUSB_GONE = 3,              // the device is not attached
  YUSB_INVALID_ARGUMENT = 4,  // null pointer, size not set, string not UTF-8, or as documented
  YUSB_NOT_STARTED = 5,       // the library is not started
  YUSB_OUT_OF_MEMORY = 6,
  YUSB_NO_DESCRIPTOR = 7,  // the process or the system has no file descriptor left
  YUSB_REFUSED = 8,        // called under the library's locks
  YUSB_FORKED = 9,         // called in a forked child of the process that started the library
  YUSB_BUSY = 10,          // another object must be freed, or the library stopped, first
  YUSB_UNSUPPORTED = 11,   // not on this platform, or not in this version of the library
} yusb_status;

// Returns the meaning of a status, in English: a string that is always valid. May be called everywhere.
YUSB_C_EXPORT const char* yusb_status_text(yusb_status status);

// ---- Start and stop ----

// Starts the library, or counts one more user of it. Devices that are already attached are listed shortly
// afterwards: see yusb_settle. If C++ code in the process has called yusb::global_initialize, this uses the
// running library, and that code must not call yusb::global_release before the last yusb_stop. Otherwise C++
// code must call neither of these two functions.
// YUSB_OUT_OF_MEMORY, YUSB_REFUSED. If the system refuses a thread or a file descriptor, this returns
// YUSB_OK, the log has an error, and yusb_settle returns YUSB_TIMED_OUT.
YUSB_C_EXPORT yusb_status yusb_start(void);

// Undoes one yusb_start. The library stops after the last yusb_stop, as soon as the last queue is freed too,
// unless C++ code has started it. This blocks for about a millisecond, or longer while a device is being
// read.
// YUSB_NOT_STARTED, YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_stop(void);

// Waits until every change that the bus has reported is listed: after yusb_start, every attached device.
// YUSB_TIMED_OUT, YUSB_NOT_STARTED, YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_settle(int64_t limit);

// Stores whether the host has a USB bus that can be watched.
YUSB_C_EXPORT yusb_status yusb_bus_present(bool* present);

// ---- Devices ----

// Bits of yusb_device.tags and yusb_filter.tags.
enum {
  YUSB_APPLE = 1 << 0,
  YUSB_AIRPODS = 1 << 1,
  YUSB_ANDROID = 1 << 2,
};

// A record of one attached device. A copy may be passed to functions while its strings are valid.
typedef struct yusb_device {
  size_t size;
  uint16_t vendor;   // idVendor
  uint16_t product;  // idProduct
  uint16_t release;  // bcdDevice
  uint32_t tags;     // a set of YUSB_APPLE, YUSB_AIRPODS, YUSB_ANDROID

  // A record holds the low byte of each UTF-16 code unit of a string descriptor: "-" for "中".
  // yusb_device_details returns the complete strings.
  const char* location;  // the 32-bit location ID as "0x1A200000", unique among attached devices
  const char* manufacturer;
  const char* product_name;
  const char* serial_number;
} yusb_device;

typedef struct yusb_device_list {
  size_t size;
  size_t count;
  const yusb_device* const* devices;  // in order of arrival
} yusb_device_list;

// Lists the attached devices; free the list with yusb_device_list_free.
// YUSB_NOT_STARTED, YUSB_OUT_OF_MEMORY, YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_devices(yusb_device_list** list);

YUSB_C_EXPORT yusb_status yusb_device_list_free(yusb_device_list* list);

// ---- Device details ----

// The functions that a device offers, by published identifiers.
typedef enum yusb_mode {
  YUSB_MODE_ADB = 0,       // Android Debug Bridge
  YUSB_MODE_FASTBOOT = 1,  // Android's boot loader
  YUSB_MODE_MTP = 2,       // media transfer
  YUSB_MODE_PTP = 3,       // picture transfer
  YUSB_MODE_MASS_STORAGE = 4,
  YUSB_MODE_TETHERING = 5,   // a network over USB
  YUSB_MODE_ACCESSORY = 6,   // Android Open Accessory
  YUSB_MODE_USBMUX = 7,      // Apple's multiplexer
  YUSB_MODE_RECOVERY = 8,    // Apple's recovery mode
  YUSB_MODE_DFU = 9,         // Device Firmware Upgrade
  YUSB_MODE_EDL = 10,        // Qualcomm's emergency download
  YUSB_MODE_PRELOADER = 11,  // MediaTek's preloader
  YUSB_MODE_DOWNLOAD = 12,   // Samsung's download mode
  YUSB_MODE_AUDIO = 13,
  YUSB_MODE_MIDI = 14,
  YUSB_MODE_SERIAL = 15,
  YUSB_MODE_HID = 16,
  YUSB_MODE_PRINTER = 17,
  YUSB_MODE_HUB = 18,
  YUSB_MODE_SMART_CARD = 19,
  YUSB_MODE_VIDEO = 20,
  YUSB_MODE_BLUETOOTH = 21,
} yusb_mode;

// One interface of a configuration, in its alternate setting 0.
typedef struct yusb_interface {
  size_t size;
  uint8_t number;  // bInterfaceNumber
  uint8_t class_code;
  uint8_t subclass;
  uint8_t protocol;
  const char* name;    // its string descriptor; "" if it has none
  const char* driver;  // the kernel driver that is bound to it; "" if none is bound (yet)
} yusb_interface;

// The details of a device. Unknown numbers are 0, unknown strings are "".
typedef struct yusb_details {
  size_t size;
  uint32_t bus;             // bus number
  uint32_t address;         // on that bus; a device gets a new address each time it is attached
  const char* port_path;    // "1-2.3": bus 1, port 2, and port 3 of the hub there; "usb1" is a root hub
  const char* device_node;  // "/dev/bus/usb/001/005", whether it exists or not; on Linux only
  double speed;             // of the link, in Mbit/s: 1.5, 12, 480, 5000, ...
  uint16_t usb_version;     // bcdUSB: 0x0210 is USB 2.1
  uint8_t class_code;       // bDeviceClass; 0: each interface has its own class
  uint8_t subclass;
  uint8_t protocol;
  uint8_t configurations;        // number of configurations
  uint8_t active_configuration;  // bConfigurationValue; 0 if it is not configured
  uint16_t max_power;            // of the active configuration, in mA
  size_t interface_count;
  const yusb_interface* const* interfaces;  // of the active configuration, in the device's order
  uint64_t modes;                           // a set of 1 << YUSB_MODE_...

  const char* manufacturer;  // complete
  const char* product_name;
  const char* serial_number;
} yusb_details;

// Reads the details of a device that is attached; free them with yusb_details_free. The library need not be
// started. The device is not accessed.
// YUSB_GONE if another device or none is attached at the device's location, or if the system cannot be
// queried; YUSB_OUT_OF_MEMORY, YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_device_details(const yusb_device* device, yusb_details** details);

YUSB_C_EXPORT yusb_status yusb_details_free(yusb_details* details);

// Stores the name of a mode, "adb" or "mass-storage": a string that is always valid.
// YUSB_UNSUPPORTED if the library does not know the mode.
YUSB_C_EXPORT yusb_status yusb_mode_name(yusb_mode mode, const char** name);

// Stores the mode of that name.
// YUSB_UNSUPPORTED if the library does not know the mode.
YUSB_C_EXPORT yusb_status yusb_parse_mode(const char* name, yusb_mode* mode);

// Waits until this process has permission to open the device. The library need not be started.
// YUSB_OK if it has permission, YUSB_GONE, YUSB_TIMED_OUT, YUSB_OUT_OF_MEMORY, YUSB_REFUSED,
// YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_wait_openable(const yusb_device* device, int64_t limit);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_DEVICES_H_
