// libYorvanUsb: lists the attached USB devices and reports each arrival and removal.
//
//   class printer : public yusb_device_event_interface {
//     void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
//       std::printf("%c %s\n", event == YUSB_DEVICE_EVENT_APPEND ? '+' : '-', device.location().data());
//     }
//   };
//
//   yusb::global_initialize();                                // starts watching the bus
//   _yusb_context* context = nullptr;
//   yusb::context_create(&context);
//   printer interface;
//   yusb::context_notify_object_append(context, &interface);  // replays the list, then sends live events
//   ...
//   yusb::context_notify_object_remove(context, &interface);  // no call reaches it after this
//   yusb::context_release(context);
//   yusb::global_release();
//
// Life cycle. The host calls yusb::global_initialize once before any other function, and yusb::global_release
// once after all others, before the process exits. Neither may overlap with any other call into the library.
// Before the first and after the second call the list is empty, functions that register an interface or walk
// the list return false or do nothing, and yusb::context_create yields a context that receives no events. The
// library may be initialised again after a release; context handles from before the release are invalid.
//
// Threads. All other functions may be called from any thread. The library has one thread of its own, the
// monitor thread, and delivers live events on it. All signals except synchronous faults are blocked there. A
// child that was forked without exec does not have this thread and must not call the library.
//
// Locks. There are three: the set of open contexts, the device list, one context. None is recursive, and they
// are always taken in this order. Each function below documents which it takes. An event handler runs under
// all three during live events and during the replay of context_release. There it must not call:
// - a function that takes one of the locks, nor global_initialize, global_release or platform_hotplug_stop;
// - a function that delivers an event (common_notify_handle and the two based on it), for any context.
//
// The library refuses the call: it does nothing, returns false if it returns a value (unless documented
// otherwise), and writes a line of level 4 to the log. During the replays of context_notify_object_append and
// context_notify_object_remove a handler runs without a lock and may call every function except
// global_release. The log sink must not call the library at all: it may run under these locks, or hold its
// own lock while a thread under them waits for it.
//
// Exceptions. Functions do not throw unless noted. An exception that escapes a handler or a visitor
// terminates the process.
//
// Out of memory. A failed allocation terminates the process in these places only:
// - on the monitor thread: when it starts, and when it reads a device or adds one to the list;
// - when a context is added to the set (context_create, common_object_append);
// - when an interface is registered or unregistered, since that copies the list;
// - in common_device_append, and in device_traverse, airpods_traverse and common_device_traverse (a copy);
// - in the first calls of device_is_apple, device_is_airpods and device_is_android, which build tables.
//
// device_is_android and airpods_get_serial_number throw std::bad_alloc. global_initialize and context_create
// document what they leave out. No other function here allocates. The log truncates long lines.
#ifndef YUSB_H_
#define YUSB_H_

#if __cplusplus < 201703L
#error "libYorvanUsb needs C++17 or later: compile with -std=c++17"
#endif

#include <functional>

#include <YorvanCore/YString.h>

#if defined(__GNUC__) && !defined(YUSB_STATIC)
#define YUSB_EXPORT __attribute__((visibility("default")))
#else
#define YUSB_EXPORT
#endif

// A client's handle on the library. Opaque. The library owns it until context_release or global_release.
struct _yusb_context;

struct _yusb_platform_context;  // The state of the monitor thread. Opaque.

// One USB device: a plain value that owns its strings.
//
// A string holds the low byte of each UTF-16 code unit that the device sent; it is not UTF-8 and may hold any
// byte except 0. A record that is passed to a handler or a visitor is valid only during that call; copy it if
// you need it later. A record has no lock: do not modify it on one thread while another thread reads it.
// Copies are independent of each other.
class YUSB_EXPORT YUsbInfoDevice {
 public:
  // All numbers are 0, all strings are empty.
  YUsbInfoDevice();

  YUsbInfoDevice(const YUsbInfoDevice& other);
  YUsbInfoDevice& operator=(const YUsbInfoDevice& other);
  virtual ~YUsbInfoDevice();

  // Records are equal if their locations are equal; other fields are not compared.
  bool operator==(const YUsbInfoDevice& other) const;
  bool operator!=(const YUsbInfoDevice& other) const;

  // True if vendorID, productID and revisedID are all 0, whatever the strings are.
  virtual bool empty() const;
  // The opposite of empty(), also if a derived class overrides empty().
  virtual bool exist() const;

  virtual void setVendorID(unsigned short value);
  virtual void setProductID(unsigned short value);
  virtual void setRevisedID(unsigned short value);
  virtual void setFactory(const YString& value);
  virtual void setSerialNumber(const YString& value);
  virtual void setLocation(const YString& value);
  virtual void setInstancePath(const YString& value);
  virtual void setDescribe(const YString& value);

  // idVendor, idProduct and bcdDevice of the USB device descriptor.
  virtual unsigned short vendorID() const;
  virtual unsigned short productID() const;
  virtual unsigned short revisedID() const;

  // Each reference is valid until the field is assigned or the record is destroyed.
  virtual const YString& factory() const;       // the manufacturer string
  virtual const YString& serialNumber() const;  // the serial-number string
  virtual const YString& location() const;      // the location ID as "0x%X", unique among attached devices
  virtual const YString& instancePath() const;  // equal to location for a device that was read from the bus
  virtual const YString& describe() const;      // the product string

 private:
  unsigned short _vendorID = 0;
  unsigned short _productID = 0;
  unsigned short _revisedID = 0;
  YString _factory;
  YString _serialNumber;
  YString _location;
  YString _instancePath;
  YString _describe;
};

// What happened to a device.
enum _yusb_device_event : int {
  // It was attached, or it was listed when the interface was registered.
  YUSB_DEVICE_EVENT_APPEND = 0,
  // It was detached, or it was listed when the interface was unregistered or its context was released.
  YUSB_DEVICE_EVENT_REMOVE = 1,
};

// Implemented by the client to receive events. The client owns the object and keeps it alive until the call
// that unregisters it or releases its context has returned.
class YUSB_EXPORT yusb_device_event_interface {
 public:
  // Called once per event. Live events are delivered on the monitor thread, replays on the thread that caused
  // them. Because a live event may arrive during the replay of a registration or unregistration, the handler
  // must be thread-safe. The handler must not throw, must not block for long (the whole library waits), and
  // must follow the rules for locks at the top of this file. `device` is valid only during the call. It is
  // empty() if a device that was never listed is detached. `event` is an arrival or a removal.
  virtual void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) = 0;

  virtual ~yusb_device_event_interface() = default;
};

namespace yusb {

// Receives one record of a snapshot; returns true to continue, false to stop. It is called on the calling
// thread without a lock, so it may call the library. It must not throw.
using device_visitor = std::function<bool(const YUsbInfoDevice&)>;

// ---- Life cycle ----

// Creates the device list and starts the monitor thread without waiting for it: devices that are already
// attached arrive shortly afterwards as live events. If memory, threads or file descriptors run out, it
// starts what it can, and the list stays empty. A second call before a release keeps everything, and tries
// again to start the monitor thread if that is not running. If only a part of the list could be allocated,
// the other part may stay missing until a release. Refused in a handler that runs under the locks.
YUSB_EXPORT void global_initialize() noexcept;

// Stops the monitor thread and waits until it has ended. Then destroys every context that is still open,
// without sending events, and the list. This takes about a millisecond, unless it has to wait: for the
// handler that is running, for the device that is being read, and, while the devices that were attached at
// the start are read, for all of those. A string request that a device does not answer costs the platform's
// time limit (0.5 s on Linux); without a limit, a device that never answers blocks the call forever. Does
// nothing if there is nothing to release. Refused on the monitor thread and in a handler that runs under the
// locks.
YUSB_EXPORT void global_release() noexcept;

// ---- Contexts ----

// Opens a context. `out` receives its handle, or null if the context cannot be allocated: test the handle.
// False, with *out unchanged, if `out` is null or the call is refused; otherwise true. Takes the context-set
// and device-list locks.
YUSB_EXPORT bool context_create(_yusb_context** out) noexcept;

// Closes a context. Each interface that is still registered on it receives a removal for every listed device,
// under the locks, before the handle becomes invalid. `ctx` must not be in use on another thread. False if
// `ctx` is null or the call is refused; otherwise true. Takes all three locks.
YUSB_EXPORT bool context_release(_yusb_context* ctx) noexcept;

// Registers an interface. It receives an arrival for every listed device, in order of arrival, before the
// call returns, and every later event. Live events are not merged with this replay: the interface may receive
// an event twice or out of order if a device is attached or detached during the replay. False if an argument
// is null, the interface is already registered on this context, the library is not initialised, or the call
// is refused; otherwise true. Takes the context's lock, then briefly the device-list lock; the replay runs
// without a lock.
YUSB_EXPORT bool context_notify_object_append(_yusb_context* ctx,
                                              yusb_device_event_interface* iface) noexcept;

// Unregisters an interface. It receives a removal for every listed device before the call returns. No call
// reaches it on behalf of this context after that, unless another thread is still registering it. False if an
// argument is null, the interface is not registered on this context, the library is not initialised, or the
// call is refused; otherwise true. Takes the context's lock, then briefly the device-list lock; the replay
// runs without a lock.
YUSB_EXPORT bool context_notify_object_remove(_yusb_context* ctx,
                                              yusb_device_event_interface* iface) noexcept;

// ---- Devices ----

// Calls the visitor with every listed device, in order of arrival, until it returns false. It walks a
// snapshot of the list. `ctx` is not used and may be null. `visitor` receives the records. False if the
// visitor is empty, the library is not initialised, or the call is refused; otherwise true, also if the
// visitor returned false. Takes the device-list lock while it copies the list.
YUSB_EXPORT bool device_traverse(_yusb_context* ctx, const device_visitor& visitor) noexcept;

// Searches the list. `ctx` is not used and may be null. `device` is the record to search for. True if a
// listed device has the record's instance path or its location. Takes the device-list lock.
YUSB_EXPORT bool device_is_exist(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;

// ---- Tests of a record (no lock; allowed everywhere) ----

// True for an Apple device: the vendor ID is 0x05AC.
YUSB_EXPORT bool device_is_apple(const YUsbInfoDevice& device) noexcept;
// True for a pair of AirPods: an Apple device with product ID 0x1393 or 0x139A.
YUSB_EXPORT bool device_is_airpods(const YUsbInfoDevice& device) noexcept;
// True for an Android phone: the vendor ID is a phone maker's, or the manufacturer or product string contains
// a phone maker's name, in any case. It may be true for an Apple device. Throws std::bad_alloc if the strings
// cannot be copied; they are copied unless the vendor ID decides.
YUSB_EXPORT bool device_is_android(const YUsbInfoDevice& device);

// Calls the visitor with every listed pair of AirPods. `ctx` is not used and may be null. `visitor` receives
// the records; its result is ignored, and it may be empty. True unless the call is refused. Takes the
// device-list lock while it copies the list.
YUSB_EXPORT bool airpods_traverse(_yusb_context* ctx, const device_visitor& visitor) noexcept;

// Returns the serial number with a to z mapped to A to Z. `device` is any record. Throws std::bad_alloc.
YUSB_EXPORT YString airpods_get_serial_number(const YUsbInfoDevice& device);

// Asks the platform to reset Apple devices. No platform supports this. False always.
YUSB_EXPORT bool device_reset_apple() noexcept;

// ---- Underlying functions ----
//
// The building blocks of the functions above, for backends and for hosts that list devices which the bus does
// not report. Arguments are not checked; pointers must be non-null unless noted.

YUSB_EXPORT void common_global_initialize() noexcept;  // same as global_initialize
YUSB_EXPORT void common_global_release() noexcept;     // same as global_release

// Adds a context to the set and replays the list to it as arrivals. `ctx` may be null. False if `ctx` is null
// or in the set already, the library is not initialised, or the call is refused. Takes all three locks.
YUSB_EXPORT bool common_object_append(_yusb_context* ctx) noexcept;
// Removes a context from the set and replays the list to it as removals. `ctx` may be null. False if `ctx` is
// null or not in the set, the library is not initialised, or the call is refused. Takes all three locks.
YUSB_EXPORT bool common_object_remove(_yusb_context* ctx) noexcept;

// Same as context_notify_object_append or context_notify_object_remove.
YUSB_EXPORT bool common_notify_append(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept;
YUSB_EXPORT bool common_notify_remove(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept;

// Calls every interface of one context, in ascending order of address. Takes the context's lock.
YUSB_EXPORT void common_notify_handle(_yusb_context* ctx, const YUsbInfoDevice& device,
                                      _yusb_device_event event) noexcept;
// Same as common_notify_handle, with an arrival or a removal.
YUSB_EXPORT void common_notify_device_append(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;
YUSB_EXPORT void common_notify_device_remove(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;

// Appends a record to the list, without looking for a duplicate. Takes all three locks: the change, its lines
// in the log, and its delivery to every open context, in ascending order of address, are one step.
YUSB_EXPORT void common_device_append(const YUsbInfoDevice& record) noexcept;
// Removes the first record with this instance path or this location, in one step like common_device_append,
// but without lines in the log. The caller's record is delivered, even if nothing was removed.
YUSB_EXPORT void common_device_remove(const YUsbInfoDevice& record) noexcept;
// Removes the first record with this key, in one step like common_device_append. The removed record is
// delivered, or an empty one if there was none.
YUSB_EXPORT void common_device_remove_from_instance_path(const YString& path) noexcept;
YUSB_EXPORT void common_device_remove_from_location(const YString& location) noexcept;

YUSB_EXPORT bool common_device_is_exist(const YUsbInfoDevice& record) noexcept;   // same as device_is_exist
YUSB_EXPORT void common_device_traverse(const device_visitor& visitor) noexcept;  // same as device_traverse
YUSB_EXPORT void common_device_printf(const YUsbInfoDevice& record) noexcept;     // logs 8 lines of level 1
YUSB_EXPORT bool platform_reset_apple() noexcept;  // same as device_reset_apple

// Starts the monitor thread, detached. `context` may be null. False if `context` is null, if its thread has
// not ended, or if no thread can be created; otherwise true.
YUSB_EXPORT bool platform_hotplug_start(_yusb_platform_context* context) noexcept;
// Stops the monitor thread. When this returns, no handler runs and the thread no longer accesses the context.
// On the monitor thread and in a handler that runs under the locks the call is refused: it stops nothing and
// writes a line of level 4 to the log. `context` may be null. True always, also if the call is refused.
YUSB_EXPORT bool platform_hotplug_stop(_yusb_platform_context* context) noexcept;

}  // namespace yusb

// The dynamic loader calls _yorvan_usb_dynamic_library_init when it loads the library, and ..._fini when it
// unloads it. They call the other two functions; none creates or destroys anything. On macOS the library is
// never unloaded, so _yorvan_usb_dynamic_library_fini runs when the process exits.
YUSB_EXPORT bool yorvan_usb_dynamic_library_initialize() noexcept;
YUSB_EXPORT void yorvan_usb_dynamic_library_release() noexcept;
YUSB_EXPORT void _yorvan_usb_dynamic_library_init() noexcept;
YUSB_EXPORT void _yorvan_usb_dynamic_library_fini() noexcept;

#endif  // YUSB_H_
