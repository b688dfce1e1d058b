// A simulated USB bus for tests: attach and detach simulated devices, with injected faults. It needs no root
// access, no hardware and no LD_PRELOAD.
//
//   yusb::simulator bus;                      // the library's bus from the next yusb::global_initialize on
//   yusb::global_initialize();
//   yusb::simulated_device phone;
//   phone.vendor = 0x18D1;
//   phone.product = 0x4EE7;
//   phone.location = 0x01200000;
//   phone.serial_number = "0A1B2C";
//   const int id = bus.plug(phone);
//   bus.settle();                             // until the phone is listed and every handler was called
//   bus.unplug(id);
//   yusb::global_release();
//   assert(bus.leaks().empty());
#ifndef YUSB_SIMULATOR_H_
#define YUSB_SIMULATOR_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <yusb_bus.h>
#include <yusb_details.h>

namespace yusb {

// The answer to one string request, as a device would send it.
struct simulated_reply {
  std::int32_t status = 0;             // an IOReturn code; 0 is success
  std::vector<std::uint8_t> bytes;     // the whole descriptor with its two header bytes; truncated to wLength
  std::chrono::milliseconds delay{0};  // before the answer
};

// The numbers that the library requests from a device.
enum class simulated_number {
  vendor,
  product,
  release,
  location,
  manufacturer_index,
  product_index,
  serial_number_index
};

// The description of a device for simulator::plug.
struct simulated_device {
  std::uint16_t vendor = 0;    // idVendor
  std::uint16_t product = 0;   // idProduct
  std::uint16_t release = 0;   // bcdDevice
  std::uint32_t location = 0;  // the location ID

  // In UTF-8, truncated to 126 UTF-16 code units, as in a descriptor. An empty optional is a device without
  // the string: its index is 0.
  std::optional<std::string> manufacturer;   // string index 1
  std::optional<std::string> product_name;   // string index 2
  std::optional<std::string> serial_number;  // string index 3

  // Injected faults. Statuses are IOReturn codes.
  std::int32_t plugin_status = 0;      // of creating the plug-in
  bool plugin_missing = false;         // creating it succeeds, but returns no plug-in
  std::int32_t interface_status = 0;   // of requesting the device interface from the plug-in
  bool interface_missing = false;      // requesting it succeeds, but returns no interface
  std::set<simulated_number> failing;  // queries that fail
  // Replies by string index, instead of the strings above; the index must be in use.
  std::map<int, simulated_reply> replies;
  // False: the registry has no "locationID" for the device, so its removal is not reported.
  bool location_property = true;

  // What yusb_details.h reports besides the numbers and strings above. If the port path is empty, it is
  // derived from the location: "1-2.3" from 0x01230000, or none if no port path has that location.
  std::string port_path;
  std::uint16_t usb_version = 0x0200;
  std::uint8_t class_code = 0;
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
  double speed = 480;  // in Mbit/s
  std::uint8_t configurations = 1;
  std::uint8_t active_configuration = 1;
  std::uint16_t max_power = 500;  // in mA
  std::vector<usb_interface> interfaces;

  // The time from the arrival until the device is openable (yusb_openable.h). If empty, it is not openable
  // before simulator::open_node.
  std::optional<std::chrono::milliseconds> openable_after = std::chrono::milliseconds(0);
};

// A control request that reached a device.
struct simulated_request {
  std::uint8_t request_type;
  std::uint8_t request;
  std::uint16_t value;
  std::uint16_t index;
  std::uint16_t length;
};

// The simulated bus. Only one may exist at a time. The library watches it from its next initialisation on; a
// library that is already running is not affected. Destroy it after yusb::global_release; from then on the
// library watches the host's bus again. All functions may be called from any thread, before, during and after
// the library's use; plug, unplug, open_node and requests also in a handler. All except settle and the
// destructor may throw std::bad_alloc; the state after a plug or unplug that threw is undefined.
class YUSB_BUS_EXPORT simulator {
 public:
  simulator();
  ~simulator();
  simulator(const simulator&) = delete;
  simulator& operator=(const simulator&) = delete;

  // Attaches a device and returns its ID, never 0. Nothing is checked: two devices may share a location.
  int plug(const simulated_device& device);

  // Detaches a device. `id` is from plug. False if it is not attached.
  bool unplug(int id);

  // Makes a device openable. `id` is from plug. False if it is not attached.
  bool open_node(int id);

  // Same as yusb::bus_settle.
  bool settle(std::chrono::milliseconds limit = std::chrono::seconds(30));

  // Returns the requests that have reached an attached device, in order. `id` is from plug.
  std::vector<simulated_request> requests(int id) const;

  // Returns what the library has acquired and not released, one line per kind ("service: 2"). Empty after a
  // release, unless the library leaks.
  static std::vector<std::string> leaks();

  // Sets a hook that runs at the start of each call that the library makes to the system, with the call's
  // name ("CFRunLoopRun"), on the thread that makes it. The hook can delay the call or act at that point. If
  // it returns false, these calls fail: IONotificationPortCreate, IONotificationPortGetRunLoopSource,
  // IOServiceMatching, IOServiceAddMatchingNotification. An empty hook removes it, but a call of the old hook
  // may still be running.
  void before_calls(std::function<bool(const char* call)> hook);

 private:
  struct implementation;
  std::shared_ptr<implementation> _implementation;
};

}  // namespace yusb

#endif  // YUSB_SIMULATOR_H_
