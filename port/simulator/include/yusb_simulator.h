// A simulated USB bus: plug and unplug described devices, with any fault, and see what the library makes of
// it. Needs no root, no hardware and no preloading.
//
//   yusb::simulator bus;                      // the library's bus from the next yusb::global_initialize on
//   yusb::global_initialize();
//   yusb::simulated_device phone;
//   phone.vendor = 0x18D1;
//   phone.product = 0x4EE7;
//   phone.location = 0x01200000;
//   phone.serial_number = "0A1B2C";
//   const int id = bus.plug(phone);
//   bus.settle();                             // the list and every handler know of it now
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
  std::int32_t status = 0;             // an IOReturn; 0 is success
  std::vector<std::uint8_t> bytes;     // the whole descriptor, its two header bytes first; cut at wLength
  std::chrono::milliseconds delay{0};  // before the answer
};

// What a device can be asked for besides its strings.
enum class simulated_number {
  vendor,
  product,
  release,
  location,
  manufacturer_index,
  product_index,
  serial_number_index
};

struct simulated_device {
  std::uint16_t vendor = 0;    // idVendor
  std::uint16_t product = 0;   // idProduct
  std::uint16_t release = 0;   // bcdDevice
  std::uint32_t location = 0;  // the location ID

  // UTF-8; a device without the string has index 0 for it. Cut at 126 UTF-16 units, as a descriptor is.
  std::optional<std::string> manufacturer;   // string index 1
  std::optional<std::string> product_name;   // string index 2
  std::optional<std::string> serial_number;  // string index 3

  // Faults. Statuses are IOReturn codes.
  std::int32_t plugin_status = 0;          // of creating the plug-in
  bool plugin_missing = false;             // creating it succeeds and hands back nothing
  std::int32_t interface_status = 0;       // of asking the plug-in for the device interface
  bool interface_missing = false;          // asking succeeds and hands back nothing
  std::set<simulated_number> failing;      // queries that fail
  std::map<int, simulated_reply> replies;  // by string index, instead of the text's; the index must be in use
  bool location_property = true;  // false: the registry has no "locationID", so its departure goes unnoticed

  // What yusb_details.h reports besides the numbers and strings above.
  std::string
      port_path;  // empty: "1-2.3" for the location 0x01230000, and none for one that is no such path's
  std::uint16_t usb_version = 0x0200;
  std::uint8_t class_code = 0;
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
  double speed = 480;  // in Mbit/s
  std::uint8_t configurations = 1;
  std::uint8_t active_configuration = 1;
  std::uint16_t max_power = 500;  // in mA
  std::vector<usb_interface> interfaces;

  // When yusb_openable.h finds the device openable: so long after its arrival, or, if empty, not before
  // simulator::open_node.
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

// The bus. One at a time; from its construction it is what the library watches from its next initialisation
// on, and until then nothing changes. Destroy it after yusb::global_release; then the host's own bus is the
// library's again. All functions may be called from any thread, before, during and after the library's use;
// plug, unplug, open_node and requests also from a handler. All but settle and the destructor may throw
// std::bad_alloc; what a plug or an unplug that threw has done is undefined.
class YUSB_BUS_EXPORT simulator {
 public:
  simulator();
  ~simulator();
  simulator(const simulator&) = delete;
  simulator& operator=(const simulator&) = delete;

  // Attaches a device and returns its number, never 0. Nothing is checked: two devices may share a location.
  int plug(const simulated_device& device);

  // Detaches it. False if it is not attached.
  bool unplug(int id);

  // Makes a device openable from now on. False if it is not attached.
  bool open_node(int id);

  // bus_settle.
  bool settle(std::chrono::milliseconds limit = std::chrono::seconds(30));

  // The requests that have reached an attached device, in order.
  std::vector<simulated_request> requests(int id) const;

  // What the library was given and has not given back, a line a kind ("service: 2"). Empty after a release.
  static std::vector<std::string> leaks();

  // Calls `hook` at the start of each call that the library makes to the system, with the call's name
  // ("CFRunLoopRun"), on the thread that makes it: to delay it, to act at that very moment, or, by
  // returning false, to make it fail if it is one that can (IONotificationPortCreate,
  // IONotificationPortGetRunLoopSource, IOServiceMatching, IOServiceAddMatchingNotification). An empty hook
  // ends it, but a call of the old one may be under way still.
  void before_calls(std::function<bool(const char* call)> hook);

 private:
  struct implementation;
  std::shared_ptr<implementation> _implementation;
};

}  // namespace yusb

#endif  // YUSB_SIMULATOR_H_
