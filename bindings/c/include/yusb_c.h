// libYorvanUsbC: the library for C, and for every language that can call C. C11. Link YorvanUsb::C, or
// YorvanUsbC for pkg-config.
//
//   yusb_start();
//   yusb_queue* queue = NULL;
//   yusb_event* event = NULL;
//   yusb_queue_open(NULL, &queue);
//   while (yusb_queue_next(queue, 60000, &event) == YUSB_OK) {  // until nothing happens for a minute
//     if (event->kind == YUSB_ARRIVAL) printf("+ %s\n", event->device->location);
//     yusb_event_free(event);
//   }
//   yusb_queue_free(queue);
//   yusb_stop();
//
// Status. Every function but yusb_status_text returns a yusb_status. The comment of each names those that it
// returns, besides YUSB_INVALID_ARGUMENT for a null pointer and YUSB_FORKED. If the status is not YUSB_OK,
// output arguments are set to null or 0. No function calls back into the program.
//
// Memory. What a function hands out is freed by the function that its comment names, which ignores null.
// Strings are UTF-8, ended by a zero, never null in what the library hands out, and valid until the structure
// that they are in is freed.
//
// Sizes. Each structure begins with its size. The caller sets it in the structures that the caller makes, and
// sets members that it does not use to 0: `yusb_filter phones = {.size = sizeof phones, .tags =
// YUSB_ANDROID};`. Members that later versions add are taken as 0 from callers that do not have them; members
// that the library does not have must be 0 (YUSB_UNSUPPORTED). In a structure that the library hands out,
// `size` says what it has: test YUSB_HAS before reading a member that a later version than 5.1.0 added.
// Arrays that the library hands out are arrays of pointers; arrays that the caller makes are of structures of
// one size.
//
// Threads. Every function may be called on any thread, except that an object must not be freed while another
// thread uses it. A function that waits for the library is refused in what runs under the library's locks,
// which are handlers and watchers of C++ code in the same process (YUSB_REFUSED).
//
// Forks. In a child that was forked (without exec) while the library was started here, a simulator existed or
// a call was under way, every function but those that free structures returns YUSB_FORKED at once. If only
// C++ code used the library, its child must not call it at all.
//
// Out of memory. Functions return YUSB_OUT_OF_MEMORY. The process terminates instead when an allocation fails
// while an event is recorded, while the device list is copied (yusb_devices, yusb_queue_open, the first
// yusb_start in a process whose C++ code has started the library) or when tables are made (the first device
// that is handed out).
//
// Time limits are in milliseconds: 0 does not wait, a negative limit waits as long as it takes. Signals do
// not interrupt a wait; to be interrupted, wait for yusb_queue_descriptor.
#ifndef YUSB_C_H_
#define YUSB_C_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) && !defined(YUSB_STATIC)
#define YUSB_C_EXPORT __attribute__((visibility("default")))
#else
#define YUSB_C_EXPORT
#endif

// Whether a structure that the library handed out has a member: YUSB_HAS(yusb_device, tags, device).
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
  YUSB_INVALID_ARGUMENT = 4,  // a pointer is null, a size is not set, a text is not UTF-8, or as documented
  YUSB_NOT_STARTED = 5,       // the library is not started
  YUSB_OUT_OF_MEMORY = 6,
  YUSB_NO_DESCRIPTOR = 7,  // the process or the system has no file descriptor left
  YUSB_REFUSED = 8,        // called under the library's locks
  YUSB_FORKED = 9,         // called in a forked child of the process that started the library
  YUSB_BUSY = 10,          // what must end first is still in use
  YUSB_UNSUPPORTED = 11,   // not on this platform, or not in this version of the library
} yusb_status;

// What a status means, in English: a string that is always valid. From anywhere.
YUSB_C_EXPORT const char* yusb_status_text(yusb_status status);

// ---- Start and stop ----

// Starts the library, or counts one more user of it. Devices that are attached already are listed shortly
// afterwards: see yusb_settle. In a process whose C++ code has called yusb::global_initialize, the library is
// used as it runs; that code must not call yusb::global_release before the last yusb_stop. In other cases C++
// code must call neither.
// YUSB_OUT_OF_MEMORY, YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_start(void);

// Undoes one yusb_start. The last one stops the library, unless C++ code has started it; so does freeing the
// last queue if that comes later. Blocks for about a millisecond, longer while a device is being read.
// YUSB_NOT_STARTED, YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_stop(void);

// Waits until everything that the bus has reported is listed: after yusb_start, every attached device.
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

// A record: one attachment of a device. A copy may be passed to functions as long as its strings live.
typedef struct yusb_device {
  size_t size;
  uint16_t vendor;   // idVendor
  uint16_t product;  // idProduct
  uint16_t release;  // bcdDevice
  uint32_t tags;     // a set of YUSB_APPLE, YUSB_AIRPODS, YUSB_ANDROID

  // A record holds the low byte of each UTF-16 unit of a string descriptor: of "中" it holds "-".
  // yusb_device_details has the whole strings.
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

// ---- Events ----

// Bits of yusb_filter.fields: which of its numbers are compared.
enum {
  YUSB_MATCH_VENDOR = 1 << 0,
  YUSB_MATCH_PRODUCT = 1 << 1,
  YUSB_MATCH_CLASS = 1 << 2,
  YUSB_MATCH_INTERFACE_CLASS = 1 << 3,
  YUSB_MATCH_INTERFACE_SUBCLASS = 1 << 4,  // with the bits above and below it, of one and the same interface
  YUSB_MATCH_INTERFACE_PROTOCOL = 1 << 5,
};

// A device passes if it agrees with everything that is set. Numbers are set by their bit in `fields`, the
// other members by not being null or 0.
//
// From `modes` on, and the classes, are read from the bus for each device (see yusb_device_details), only if
// the device agrees with the rest. A device that is gone by then does not agree.
typedef struct yusb_filter {
  size_t size;
  uint32_t fields;     // a set of YUSB_MATCH_...
  uint32_t tags;       // the device has all of these tags
  uint16_t vendor;     // idVendor
  uint16_t product;    // idProduct
  uint8_t class_code;  // of the device or of one of its interfaces
  uint8_t interface_class;
  uint8_t interface_subclass;
  uint8_t interface_protocol;
  bool except;                // a device passes if it does not agree
  const char* serial_number;  // the whole string
  const char* location;       // as in yusb_device
  uint64_t modes;             // the device is in all of these modes: a set of 1 << YUSB_MODE_...
  const char* port_path;      // the whole path: "1-2.3"
  const char* name;           // a part of the manufacturer or product string; A to Z match in either case
} yusb_filter;

typedef struct yusb_queue_options {
  size_t size;
  const yusb_filter* filters;  // a device passes if one of them lets it pass; null lets every device pass
  size_t filter_count;
  size_t capacity;         // events that it holds; 0: 1024
  bool removals_at_close;  // closing it adds a removal for each device that is attached then
} yusb_queue_options;

// Keeps events until they are taken, without delaying the library or another queue.
typedef struct yusb_queue yusb_queue;

typedef enum yusb_event_kind {
  YUSB_ARRIVAL = 0,  // `device` was attached
  YUSB_REMOVAL = 1,  // `device` was detached
  YUSB_RESYNC = 2,   // the queue was full, and its events were dropped; `devices` is what is attached now
} yusb_event_kind;

// Arrivals and removals of a device strictly alternate, an arrival first. After a resync, events are changes
// of its `devices`.
typedef struct yusb_event {
  size_t size;
  yusb_event_kind kind;
  const yusb_device* device;        // null in a resync
  const yusb_device_list* devices;  // null but in a resync
} yusb_event;

// Opens a queue; free it with yusb_queue_free. Arrivals of the listed devices are in it when this returns. It
// keeps the library started until it is freed. `options` may be null. `queue` receives the queue.
// YUSB_NOT_STARTED, YUSB_OUT_OF_MEMORY, YUSB_REFUSED, YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_queue_open(const yusb_queue_options* options, yusb_queue** queue);

// Takes the next event, and waits for one within the limit; free it with yusb_event_free. Several threads may
// call it at once: each event goes to one of them.
// YUSB_TIMED_OUT, YUSB_CLOSED, YUSB_OUT_OF_MEMORY: the next call returns the event, which the descriptor may
// not show.
YUSB_C_EXPORT yusb_status yusb_queue_next(yusb_queue* queue, int64_t limit, yusb_event** event);

YUSB_C_EXPORT yusb_status yusb_event_free(yusb_event* event);

// Stores a descriptor for an event loop: readable while the queue has an event, and for good once the queue
// is closed. It is the same at each call, and the queue closes it when it is freed: do not read, write or
// close it, and take it out of the loop before that. YUSB_NO_DESCRIPTOR: the queue goes on, and a later call
// tries again.
YUSB_C_EXPORT yusb_status yusb_queue_descriptor(yusb_queue* queue, int* descriptor);

// Stops recording, and wakes the threads that wait in yusb_queue_next. What is queued can still be taken. A
// second call does nothing.
// YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_queue_close(yusb_queue* queue);

// Closes and frees a queue; no other thread may be using it. Events that were taken from it stay valid.
// YUSB_REFUSED: the queue is not freed.
YUSB_C_EXPORT yusb_status yusb_queue_free(yusb_queue* queue);

// ---- What a device is ----

// What a device is doing, by published identifiers.
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
  const char* driver;  // the kernel driver that is bound to it; "" if there is none, or none yet
} yusb_interface;

// Numbers that the system does not know are 0, strings that it does not know are "".
typedef struct yusb_details {
  size_t size;
  uint32_t bus;             // bus number
  uint32_t address;         // on that bus; a device gets another one each time it is attached
  const char* port_path;    // "1-2.3": bus 1, port 2, and port 3 of the hub there; "usb1" is a root hub
  const char* device_node;  // "/dev/bus/usb/001/005", whether it exists or not; "" off Linux
  double speed;             // of the link, in Mbit/s: 1.5, 12, 480, 5000, ...
  uint16_t usb_version;     // bcdUSB: 0x0210 is USB 2.1
  uint8_t class_code;       // bDeviceClass; 0 leaves it to the interfaces
  uint8_t subclass;
  uint8_t protocol;
  uint8_t configurations;        // how many the device has
  uint8_t active_configuration;  // bConfigurationValue; 0 if it is not configured
  uint16_t max_power;            // of the active configuration, in mA
  size_t interface_count;
  const yusb_interface* const* interfaces;  // of the active configuration, in the device's order
  uint64_t modes;                           // a set of 1 << YUSB_MODE_...

  const char* manufacturer;  // the whole strings
  const char* product_name;
  const char* serial_number;
} yusb_details;

// Reads the details of what is attached now at the device's location; free them with yusb_details_free. The
// library need not be started. The device is neither opened nor asked.
// YUSB_GONE if that is another device or none, or if the system cannot be asked; YUSB_OUT_OF_MEMORY,
// YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_device_details(const yusb_device* device, yusb_details** details);

YUSB_C_EXPORT yusb_status yusb_details_free(yusb_details* details);

// Stores the name of a mode, "adb" or "mass-storage": a string that is always valid.
// YUSB_UNSUPPORTED if the library knows no such mode.
YUSB_C_EXPORT yusb_status yusb_mode_name(yusb_mode mode, const char** name);

// Stores the mode of that name.
// YUSB_UNSUPPORTED if the library knows no such mode.
YUSB_C_EXPORT yusb_status yusb_parse_mode(const char* name, yusb_mode* mode);

// Waits until this process may open the device. The library need not be started.
// YUSB_OK if it may, YUSB_GONE, YUSB_TIMED_OUT, YUSB_OUT_OF_MEMORY, YUSB_REFUSED, YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_wait_openable(const yusb_device* device, int64_t limit);

// ---- The log ----
//
// The log is one for the process. Its lines go to standard error at first, from YUSB_LOG_TRACE on.

typedef enum yusb_log_level {
  YUSB_LOG_TRACE = 0,
  YUSB_LOG_INFO = 1,  // eight lines for each device
  YUSB_LOG_NOTICE = 2,
  YUSB_LOG_WARNING = 3,
  YUSB_LOG_ERROR = 4,
  YUSB_LOG_FATAL = 5,
} yusb_log_level;

typedef struct yusb_log_line {
  size_t size;
  yusb_log_level level;
  const char* text;  // without a line end
  size_t dropped;    // lines that were dropped before this one, because too many were kept or memory ran out
} yusb_log_line;

// Drops lines below a level from now on.
YUSB_C_EXPORT yusb_status yusb_log_threshold(yusb_log_level level);

// Keeps lines for yusb_log_next from now on, `capacity` at most, and then drops the oldest; with 0, drops
// what is kept and writes lines to standard error. Replaces a sink that C++ code has set.
YUSB_C_EXPORT yusb_status yusb_log_keep(size_t capacity);

// Takes the oldest line that is kept, and waits for one within the limit; free it with yusb_log_line_free.
// YUSB_TIMED_OUT, YUSB_OUT_OF_MEMORY: then the line stays.
YUSB_C_EXPORT yusb_status yusb_log_next(int64_t limit, yusb_log_line** line);

YUSB_C_EXPORT yusb_status yusb_log_line_free(yusb_log_line* line);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_H_
