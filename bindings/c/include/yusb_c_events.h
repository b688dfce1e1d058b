// The library for C: filters, queues of events, and the log. Include <yusb_c.h>.
#ifndef YUSB_C_EVENTS_H_
#define YUSB_C_EVENTS_H_

#include "yusb_c_devices.h"

#ifdef __cplusplus
extern "C" {
#endif

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

// Takes the next event, or waits for one until the limit has passed; free it with yusb_event_free. Several
// threads may call it at the same time: each event goes to one of them.
// YUSB_TIMED_OUT, YUSB_CLOSED. YUSB_OUT_OF_MEMORY: the next call returns the event, even if the descriptor is
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

// ---- The log ----
//
// The process has one log. By default all its lines, from YUSB_LOG_TRACE on, go to standard error.

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

// Takes the oldest stored line, or waits for one until the limit has passed; free it with
// yusb_log_line_free. yusb_log_keep(0) does not end the wait: use a limit in a thread that must end.
// YUSB_TIMED_OUT. YUSB_OUT_OF_MEMORY: the line stays stored.
YUSB_C_EXPORT yusb_status yusb_log_next(int64_t limit, yusb_log_line** line);

YUSB_C_EXPORT yusb_status yusb_log_line_free(yusb_log_line* line);

#ifdef __cplusplus
}
#endif

#endif  // YUSB_C_EVENTS_H_
