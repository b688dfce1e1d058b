// The interface of a USB bus: its devices, their arrivals and removals, and their answers to requests.
#ifndef YORVAN_PORT_BUS_BUS_H_
#define YORVAN_PORT_BUS_BUS_H_

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include <yusb_details.h>
#include <yusb_simulator.h>

#include "bus/nodes.h"

namespace yusb::port {

// An IOReturn: 0 is success.
using status = std::int32_t;
constexpr status status_ok = 0;
constexpr status status_error = static_cast<status>(0xe00002bc);          // kIOReturnError
constexpr status status_no_device = static_cast<status>(0xe00002c0);      // kIOReturnNoDevice
constexpr status status_bad_argument = static_cast<status>(0xe00002c2);   // kIOReturnBadArgument
constexpr status status_unsupported = static_cast<status>(0xe00002c7);    // kIOReturnUnsupported
constexpr status status_not_permitted = static_cast<status>(0xe00002e2);  // kIOReturnNotPermitted
constexpr status status_timeout = static_cast<status>(0xe00002d6);        // kIOReturnTimeout
constexpr status status_stalled = static_cast<status>(0xe000404f);        // kIOUSBPipeStalled

// One control transfer on the default pipe; numbers in the host's byte order.
struct control_request {
  std::uint8_t request_type;
  std::uint8_t request;
  std::uint16_t value;
  std::uint16_t index;
  std::uint16_t length;
  void* data;                 // `length` bytes
  std::uint32_t transferred;  // set by the device

  // GET_DESCRIPTOR for the string whose index is the low byte of `value`.
  bool is_for_string() const { return request_type == 0x80 && request == 6 && value >> 8 == 3; }

  // Copies a reply, truncated to `length`.
  void answer(const std::uint8_t* bytes, std::size_t size);
};

using device_field = simulated_number;  // shared, because any field of a simulated device can fail

// The numbers of a device descriptor that a record holds.
struct device_numbers {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0;
};

// Returns the value that read() stores for a field. `string_index` has the indices of manufacturer, product
// and serial number; 0 for none.
std::uint32_t field_value(device_field field, const device_numbers& numbers, std::uint32_t location,
                          const std::array<std::uint8_t, 3>& string_index);

// The result of creating a plug-in or device interface. Only the simulator ever fails it.
struct interface_result {
  port::status status = status_ok;
  bool present = true;  // false with status 0: it succeeds, but returns nothing
};

// One device, attached or gone. Not thread-safe.
class device {
 public:
  virtual ~device() = default;

  virtual interface_result plugin() { return {}; }
  virtual interface_result device_interface() { return {}; }

  // Does not change *value on an error.
  virtual port::status read(device_field field, std::uint32_t* value) = 0;
  virtual port::status control(control_request& request) = 0;

  // The location in the system's registry, also after the device is gone.
  virtual std::optional<std::uint32_t> registry_location() = 0;
};

struct change {
  bool arrived;  // otherwise departed
  std::shared_ptr<port::device> device;
};

// An open subscription to a bus. Not thread-safe; a bus may add its own locking inside.
class session {
 public:
  virtual ~session() = default;

  // The descriptors to wait on: next() may return a change when one of them is readable. -1 stands for none.
  virtual std::array<int, 2> poll_fds() const = 0;

  // Returns the next change, in the order in which the changes happened. The first ones are an arrival for
  // each device that is attached when the session is opened, parents before children. Empty if there is none
  // yet; never waits.
  virtual std::optional<change> next() = 0;

  // Called when the reader has handled all changes from next() and is about to wait.
  virtual void idle() {}
};

class bus {
 public:
  virtual ~bus() = default;

  // Null, after a line in the log, if the bus cannot be watched. May be called from any thread.
  virtual std::unique_ptr<port::session> open() = 0;

  // Implements yusb::device_details. May be called from any thread.
  virtual std::optional<usb_details> details(const record_key& record, std::error_code& error) = 0;

  // May be called from any thread. The bus must outlive the result.
  virtual std::unique_ptr<node_watch> watch_nodes() = 0;
};

// The bus that the next notification port watches. set_bus(nullptr) selects the host's own bus. May be called
// from any thread. The bus must outlive the library's use of it.
void set_bus(bus* chosen);
bus& current_bus();

// The host's own bus.
bus& real_bus();

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_BUS_H_
