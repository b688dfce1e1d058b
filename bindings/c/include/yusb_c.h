// libYorvanUsbC: the library for C, and for languages that can call C. It needs C11. Link YorvanUsb::C, or
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
// Status. Every function except yusb_status_text returns a yusb_status. Its comment names the statuses that
// it returns, except YUSB_OK, YUSB_INVALID_ARGUMENT for a null pointer, and YUSB_FORKED. If the status is not
// YUSB_OK, output arguments are set to null or 0. No function calls back into the program.
//
// Memory. The caller frees what a function returns, with the function that the comment names; that function
// ignores null. Strings are UTF-8 with a terminating zero. Strings from the library are never null, and valid
// until their structure is freed.
//
// Sizes. Each structure begins with its size. In a structure of its own, the caller sets the size, and sets
// unused members to 0: `yusb_filter phones = {.size = sizeof phones, .tags = YUSB_ANDROID};`. If a later
// version of the library adds members, they are 0 for callers that do not have them. Members that the library
// does not have must be 0 (YUSB_UNSUPPORTED). In a structure from the library, `size` says which members it
// has: test YUSB_HAS before you read a member that was added after version 5.1.0. Arrays from the library are
// arrays of pointers; arrays of the caller are arrays of structures of one size.
//
// Threads. Every function may be called on any thread, but an object must not be freed while another thread
// uses it. A function that waits for the library is refused (YUSB_REFUSED) under the library's locks, that
// is, in handlers and watchers of C++ code in the same process.
//
// Forks. This is about children that were forked without exec while the library was started, a simulator
// existed or a call was running. In such a child every function returns YUSB_FORKED immediately, except those
// that free structures. If only C++ code used the library, the child must not call it at all.
//
// Out of memory. Functions return YUSB_OUT_OF_MEMORY. But a failed allocation terminates the process while an
// event is stored, while the device list is copied (in yusb_devices, in yusb_queue_open, and in the first
// yusb_start of a process whose C++ code has started the library), and while tables are built (for the first
// device that is returned).
//
// Time limits are in milliseconds: 0 does not wait, a negative limit waits forever. Signals do not interrupt
// a wait; for interruptible waits use yusb_queue_descriptor.
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
// code must call neither function.
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

// ---- Events ----

// Bits of yusb_filter.fields: the numbers that are compared.
enum {
  YUSB_MATCH_VENDOR = 1 << 0,
  YUSB_MATCH_PRODUCT = 1 << 1,
  YUSB_MATCH_CLASS = 1 << 2,
  YUSB_MATCH_INTERFACE_CLASS = 1 << 3,
  YUSB_MATCH_INTERFACE_SUBCLASS = 1 << 4,  // the three must match one interface
  YUSB_MATCH_INTERFACE_PROTOCOL = 1 << 5,
};

// A filter. A device passes if it matches all criteria that are set. The numbers are set by their bits in
// `fields`, other members if they are not null or 0.
//
// To compare `modes`, `port_path`, `name` and the classes, the device's details are read from the bus (see
// yusb_device_details), but only if the device matches the other criteria. A device that is gone by then does
// not match.
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
  bool except;                // inverts the filter
  const char* serial_number;  // the whole string
  const char* location;       // as in yusb_device
  uint64_t modes;             // the device is in all of these modes: a set of 1 << YUSB_MODE_...
  const char* port_path;      // the whole path: "1-2.3"
  const char* name;           // a part of the manufacturer or product string; A to Z match in either case
} yusb_filter;

typedef struct yusb_queue_options {
  size_t size;
  const yusb_filter* filters;  // a device must pass one of them; null: every device passes
  size_t filter_count;
  size_t capacity;         // in events; 0 stands for 1024
  bool removals_at_close;  // when it is closed, it adds a removal for each attached device
} yusb_queue_options;

// Stores events until they are taken. A slow client delays neither the library nor other queues.
typedef struct yusb_queue yusb_queue;

typedef enum yusb_event_kind {
  YUSB_ARRIVAL = 0,  // `device` was attached
  YUSB_REMOVAL = 1,  // `device` was detached
  YUSB_RESYNC = 2,   // the queue overflowed; `devices` are those attached now
} yusb_event_kind;

// An event. Arrivals and removals of a device strictly alternate, an arrival first. The events after a resync
// are changes of its `devices`.
typedef struct yusb_event {
  size_t size;
  yusb_event_kind kind;
  const yusb_device* device;        // null in a resync
  const yusb_device_list* devices;  // null except in a resync
} yusb_event;

// Opens a queue; free it with yusb_queue_free. Arrivals of the listed devices are in it when this returns. It
// keeps the library started until it is freed. `options` may be null. `queue` receives the queue.
// YUSB_NOT_STARTED, YUSB_OUT_OF_MEMORY, YUSB_REFUSED, YUSB_UNSUPPORTED.
YUSB_C_EXPORT yusb_status yusb_queue_open(const yusb_queue_options* options, yusb_queue** queue);

// Takes the next event, for which it waits until the limit has passed; free it with yusb_event_free. Several
// threads may call it at the same time: each event goes to one of them.
// YUSB_TIMED_OUT, YUSB_CLOSED, YUSB_OUT_OF_MEMORY: the next call returns the event, even if the descriptor is
// not readable.
YUSB_C_EXPORT yusb_status yusb_queue_next(yusb_queue* queue, int64_t limit, yusb_event** event);

YUSB_C_EXPORT yusb_status yusb_event_free(yusb_event* event);

// Stores a file descriptor for an event loop. It is readable while the queue has an event, and permanently
// after the queue is closed. Every call returns the same descriptor, and freeing the queue closes it. Remove
// it from the loop before that, and do not read, write or close it.
// If it fails, it stores -1.
// YUSB_NO_DESCRIPTOR: the queue keeps working, and a later call tries again.
YUSB_C_EXPORT yusb_status yusb_queue_descriptor(yusb_queue* queue, int* descriptor);

// Stops watching, and wakes the threads that wait in yusb_queue_next. Events in the queue can still be taken.
// A second call does nothing.
// YUSB_REFUSED.
YUSB_C_EXPORT yusb_status yusb_queue_close(yusb_queue* queue);

// Closes and frees a queue; no other thread may be using it. Events that were taken from it stay valid.
// YUSB_REFUSED: the queue is not freed.
YUSB_C_EXPORT yusb_status yusb_queue_free(yusb_queue* queue);

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
  const char* text;  // without a line feed
  size_t dropped;  // lines that were dropped before this one, because too many were stored or memory ran out
} yusb_log_line;

// Drops log lines below a level.
YUSB_C_EXPORT yusb_status yusb_log_threshold(yusb_log_level level);

// Starts storing lines for yusb_log_next. It stores at most `capacity` lines and then drops the oldest; 0
// drops the stored lines and sends the log to standard error again. Replaces a sink that C++ code has set.
YUSB_C_EXPORT yusb_status yusb_log_keep(size_t capacity);

// Takes the oldest stored line, for which it waits until the limit has passed; free it with
// yusb_log_line_free. yusb_log_keep(0) does not end the wait: use a limit in a thread that must end.
// YUSB_TIMED_OUT, YUSB_OUT_OF_MEMORY: the line stays stored.
YUSB_C_EXPORT yusb_status yusb_log_next(int64_t limit, yusb_log_line** line);

YUSB_C_EXPORT yusb_status yusb_log_line_free(yusb_log_line* line);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_H_
