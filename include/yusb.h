// libYorvanUsb: which USB devices are attached, and every one that comes or goes.
//
//   class printer : public yusb_device_event_interface {
//     void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
//       std::printf("%c %s\n", event == YUSB_DEVICE_EVENT_APPEND ? '+' : '-', device.location().data());
//     }
//   };
//
//   yusb::global_initialize();                             // starts watching the bus
//   _yusb_context* context = nullptr;
//   yusb::context_create(&context);
//   printer interface;
//   yusb::context_notify_object_append(context, &interface);  // replays what is attached, then live
//   ...
//   yusb::context_notify_object_remove(context, &interface);  // no call reaches it after this
//   yusb::context_release(context);
//   yusb::global_release();
//
// Life. The host calls yusb::global_initialize once before anything else and yusb::global_release once
// after everything else, before the process exits; neither may overlap with any other call into the
// library. Before the first and after the second the list is empty, what would register or walk it returns
// false or does nothing, and yusb::context_create yields a context that hears nothing. After a release the
// library may be initialised afresh; context handles from before the release are invalid.
//
// Threads. All other functions may be called from any thread. The library starts one thread of its own,
// the monitor thread, and delivers live events on it; it takes no signal that is meant for the host. A child
// that was forked without exec has no such thread and must not call the library.
//
// Locks. There are three, none recursive, always taken in this order: the set of open contexts, the
// device list, one context. Each function below says which it takes. An event handler runs under all
// three during live events and during the replay of context_release. A handler that runs under them must not
// call a function that takes one, nor global_initialize, global_release or platform_hotplug_stop, nor a
// function that delivers an event (common_notify_handle and the two made of it), not even for another
// context. Such a call is refused: it does nothing, returns false where it returns something unless it says
// otherwise, and writes a line of level 4 to the log. During the replays of context_notify_object_append and
// context_notify_object_remove a handler runs without any lock and may call everything but global_release.
// The log's sink must not call the library at all: it may run under these locks, or hold its own while
// somebody under them waits for it.
//
// Exceptions. Functions do not throw unless noted. An exception that escapes a handler or a visitor
// terminates the process.
//
// Out of memory. A failed allocation terminates the process in these places only:
// - on the monitor thread: when it starts, and when it reads a device or adds one to the list;
// - when a context is entered into the set (context_create, common_object_append);
// - when an interface is registered or unregistered, since that copies the list;
// - in device_traverse, airpods_traverse and common_device_traverse, which copy it too;
// - in common_device_append;
// - in the first calls of device_is_apple, device_is_airpods and device_is_android, which build tables.
// device_is_android and airpods_get_serial_number throw std::bad_alloc; global_initialize and
// context_create say what they leave out. No other function here allocates. The log cuts long lines.
//
// Records. A record that is handed to a handler or a visitor is valid only during that call; copy it to
// keep it.
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

// A client's handle on the library. Opaque. Owned by the library from yusb::context_create until
// yusb::context_release or yusb::global_release.
struct _yusb_context;

// The state of the monitor thread. Opaque.
struct _yusb_platform_context;

// One USB device: a plain value that owns its texts.
//
// A text holds one byte for each character that the device sent, the low byte of its UTF-16 code unit;
// it is not UTF-8 and may hold any byte but 0. A record has no lock: do not write one on one thread
// while another reads it. Copies are independent of each other.
class YUSB_EXPORT YUsbInfoDevice {
 public:
  // Numbers 0, texts empty.
  YUsbInfoDevice();
  YUsbInfoDevice(const YUsbInfoDevice& other);
  YUsbInfoDevice& operator=(const YUsbInfoDevice& other);
  virtual ~YUsbInfoDevice();

  // Records are equal when their locations are; no other field takes part.
  bool operator==(const YUsbInfoDevice& other) const;
  bool operator!=(const YUsbInfoDevice& other) const;

  // True when vendorID, productID and revisedID are all 0. Texts do not count.
  virtual bool empty() const;
  // The opposite of empty(), also where a derived class overrides that.
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

  // Each reference is valid while the record lives and the field is not assigned.
  virtual const YString& factory() const;       // the manufacturer string
  virtual const YString& serialNumber() const;  // the serial-number string
  virtual const YString& location() const;  // the 32-bit location ID as "0x%X", unique among attached devices
  virtual const YString& instancePath() const;  // the same text as location for a device read from the bus
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
  YUSB_DEVICE_EVENT_APPEND = 0,  // it arrived, or was listed when the interface was registered
  YUSB_DEVICE_EVENT_REMOVE =
      1,  // it left, or was listed when the interface was unregistered or its context released
};

// Implemented by the client to hear of devices. The client owns the object and keeps it alive until the
// call that unregisters it, or that releases its context, has returned.
class YUSB_EXPORT yusb_device_event_interface {
 public:
  // Called once an event. Live events come on the monitor thread, replays on the thread that asked for
  // them, so while a registration or unregistration replays, a live event may come at the same moment:
  // the handler must bear concurrent calls. `device` is valid only during the call. It is empty() when a
  // device left that was never listed. Must not throw, must not block for long (the whole library waits),
  // and must keep the lock rule at the top of this file.
  virtual void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) = 0;

  virtual ~yusb_device_event_interface() = default;
};

namespace yusb {

// Sees one record of a snapshot; returns true to go on, false to stop. Called on the calling thread with
// no lock held: it may call back into the library. Must not throw.
using device_visitor = std::function<bool(const YUsbInfoDevice&)>;

// ---- Life ----

// Creates the list and starts the monitor thread without waiting for it: devices attached already
// arrive shortly afterwards as live events. If memory, threads or file descriptors run out it starts what it
// can, and the list stays empty. A second call before a release keeps everything and tries again to start the
// monitor thread if that does not run. What memory ran out for while the list was created may stay missing
// until a release.
YUSB_EXPORT void global_initialize() noexcept;

// Stops the monitor thread and waits for it, then destroys every context that is still open, without an
// event, and the list. Takes about a millisecond, unless it has to wait: for the handler that is running, for
// the device that is being read, and, while the devices that were attached at the start are read, for all of
// those. A string that a device does not answer costs the platform's time limit (0.5 s on Linux); without
// such a limit, a device that never answers is waited for without end. Does nothing when there is nothing to
// release. Refused on the monitor thread and from a handler under locks.
YUSB_EXPORT void global_release() noexcept;

// ---- Contexts ----

// Opens a context and stores its handle in *out, or null if it cannot be allocated: test the handle.
// False, with *out untouched, if `out` is null or the call is refused; else true.
// Takes the context-set and device-list locks.
YUSB_EXPORT bool context_create(_yusb_context** out) noexcept;

// Closes a context. Each interface still registered on it hears a removal for every listed device,
// under the locks, before the handle becomes invalid. No other thread may be using the context.
// False if `ctx` is null or the call is refused. Takes all three locks.
YUSB_EXPORT bool context_release(_yusb_context* ctx) noexcept;

// Registers an interface; it hears an arrival for every device listed, in order of arrival, before the
// call returns, and all later changes. Live changes during the replay are not merged with it: a device
// that comes or goes at that moment may be heard of twice, or in the wrong order.
// False if an argument is null, the interface is registered on this context already, or the call is refused.
// Takes the context's lock, then briefly the device-list lock; the replay runs without any.
YUSB_EXPORT bool context_notify_object_append(_yusb_context* ctx,
                                              yusb_device_event_interface* iface) noexcept;

// Unregisters an interface; it hears a removal for every device listed before the call returns. After
// that no call reaches it on behalf of this context, unless another thread is still registering it.
// Otherwise as above; false also if it was not registered.
YUSB_EXPORT bool context_notify_object_remove(_yusb_context* ctx,
                                              yusb_device_event_interface* iface) noexcept;

// ---- Devices ----

// Shows the visitor every listed device, in order of arrival, until it returns false. The walk is over a
// snapshot. False if the visitor is empty or the call is refused, or before initialisation; else true, also
// when the visitor stopped it. `ctx` is not used and may be null. Takes the device-list lock while it copies.
YUSB_EXPORT bool device_traverse(_yusb_context* ctx, const device_visitor& visitor) noexcept;

// True if a listed device has the record's instance path or its location. False if the call is refused.
// `ctx` is not used and may be null. Takes the device-list lock.
YUSB_EXPORT bool device_is_exist(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;

// ---- What a record is (no lock; from anywhere) ----

// By vendor ID 0x05AC alone.
YUSB_EXPORT bool device_is_apple(const YUsbInfoDevice& device) noexcept;

// An Apple device with product ID 0x1393 or 0x139A.
YUSB_EXPORT bool device_is_airpods(const YUsbInfoDevice& device) noexcept;

// By vendor ID, or a phone maker's name anywhere in the manufacturer or product text, in any case of
// letters. May be true of an Apple device. Throws std::bad_alloc if the texts cannot be copied, which it does
// unless the vendor ID decides.
YUSB_EXPORT bool device_is_android(const YUsbInfoDevice& device);

// Shows the visitor every listed pair of AirPods; what it returns is ignored. True unless refused. An empty
// visitor is never called. Takes the device-list lock while it copies the list.
YUSB_EXPORT bool airpods_traverse(_yusb_context* ctx, const device_visitor& visitor) noexcept;

// The serial number of any record, a to z raised to A to Z. Throws std::bad_alloc.
YUSB_EXPORT YString airpods_get_serial_number(const YUsbInfoDevice& device);

// Asks the platform to reset Apple devices. No platform does it yet: always false.
YUSB_EXPORT bool device_reset_apple() noexcept;

// ---- The layers beneath ----
//
// What the functions above are made of. A backend feeds the list through these, and so can a host that knows
// of devices the bus does not. They do not test their arguments: pointers must not be null unless it says so.

YUSB_EXPORT void common_global_initialize() noexcept;
YUSB_EXPORT void common_global_release() noexcept;

// Enters a context into the set, or takes it out, and replays the list to it under the locks.
// False if that changes nothing, or `ctx` is null.
YUSB_EXPORT bool common_object_append(_yusb_context* ctx) noexcept;
YUSB_EXPORT bool common_object_remove(_yusb_context* ctx) noexcept;

YUSB_EXPORT bool common_notify_append(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept;
YUSB_EXPORT bool common_notify_remove(_yusb_context* ctx, yusb_device_event_interface* iface) noexcept;

// Calls every interface of one context, in ascending order of address, under the context's lock.
YUSB_EXPORT void common_notify_handle(_yusb_context* ctx, const YUsbInfoDevice& device,
                                      _yusb_device_event event) noexcept;
YUSB_EXPORT void common_notify_device_append(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;
YUSB_EXPORT void common_notify_device_remove(_yusb_context* ctx, const YUsbInfoDevice& device) noexcept;

// Changes of the list. Each is one step under the context-set and device-list locks: the change, its
// report in the log, and its delivery to every open context, in ascending order of address. An append
// never looks for a duplicate; a removal takes out the first match only and is delivered even when there
// is none: with the caller's record, or, in the removals by key, with an empty one.
YUSB_EXPORT void common_device_append(const YUsbInfoDevice& record) noexcept;
YUSB_EXPORT void common_device_remove(
    const YUsbInfoDevice& record) noexcept;  // by instance path or location; no report
YUSB_EXPORT void common_device_remove_from_instance_path(const YString& path) noexcept;
YUSB_EXPORT void common_device_remove_from_location(const YString& location) noexcept;

YUSB_EXPORT bool common_device_is_exist(const YUsbInfoDevice& record) noexcept;
YUSB_EXPORT void common_device_traverse(
    const device_visitor& visitor) noexcept;  // the visitor must not be empty
YUSB_EXPORT void common_device_printf(
    const YUsbInfoDevice& record) noexcept;  // eight lines of level 1 to the log

// Starts the monitor thread, which is detached. False if `context` is null, its thread has not ended, or
// no thread could be made.
YUSB_EXPORT bool platform_hotplug_start(_yusb_platform_context* context) noexcept;
// Stops it. When this returns, no handler runs and the thread no longer touches the context. Refused, so that
// nothing has stopped, on the monitor thread and from a handler under locks, with a line of level 4 in the
// log. True in every case.
YUSB_EXPORT bool platform_hotplug_stop(_yusb_platform_context* context) noexcept;
YUSB_EXPORT bool platform_reset_apple() noexcept;

}  // namespace yusb

// Run by the dynamic loader when the library is loaded and unloaded. They create and destroy nothing. Apple's
// loader never unloads the library: there the second runs when the process exits.
YUSB_EXPORT bool yorvan_usb_dynamic_library_initialize() noexcept;
YUSB_EXPORT void yorvan_usb_dynamic_library_release() noexcept;
YUSB_EXPORT void _yorvan_usb_dynamic_library_init() noexcept;
YUSB_EXPORT void _yorvan_usb_dynamic_library_fini() noexcept;

#endif  // YUSB_H_
