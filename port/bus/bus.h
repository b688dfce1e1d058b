// A USB bus, as port/apple needs it: what is attached, what comes and goes, and what a device answers.
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

  // Copies the start of a reply, as much as was asked for.
  void answer(const std::uint8_t* bytes, std::size_t size);
};

using device_field = simulated_number;  // one enumeration: any field of a simulated device can fail

// The numbers of a device descriptor that a record has.
struct device_numbers {
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t release = 0;
};

// What read() gives for a field. `string_index`: of manufacturer, product and serial number; 0 for none.
std::uint32_t field_value(device_field field, const device_numbers& numbers, std::uint32_t location,
                          const std::array<std::uint8_t, 3>& string_index);

// What creating a plug-in or a device interface comes to: a real bus always grants both.
struct interface_result {
  port::status status = status_ok;
  bool present = true;  // false with a status of 0 is a success that hands back nothing
};

// One device, attached or gone. Used on one thread at a time.
class device {
 public:
  virtual ~device() = default;

  virtual interface_result plugin() { return {}; }
  virtual interface_result device_interface() { return {}; }

  // Leaves *value alone on an error.
  virtual port::status read(device_field field, std::uint32_t* value) = 0;
  virtual port::status control(control_request& request) = 0;

  // The location as the system's registry has it, also when the device is gone.
  virtual std::optional<std::uint32_t> registry_location() = 0;
};

struct change {
  bool arrived;  // else departed
  std::shared_ptr<port::device> device;
};

// One watch over a bus. Used on one thread, but for what a bus does inside it.
class session {
 public:
  virtual ~session() = default;

  // What to wait for: the session has something to say when one of these is readable. -1 stands for none.
  virtual std::array<int, 2> poll_fds() const = 0;

  // The next change, in the order in which it happened: first an arrival for each device attached when the
  // session was opened, parents before children. Empty if there is none yet; never waits.
  virtual std::optional<change> next() = 0;

  // Called when the reader has handled everything that next() gave and is about to wait.
  virtual void idle() {}
};

class bus {
 public:
  virtual ~bus() = default;

  // Null, after a line in the log, if the bus cannot be watched. From any thread.
  virtual std::unique_ptr<port::session> open() = 0;

  // What yusb::device_details returns. From any thread.
  virtual std::optional<usb_details> details(const record_key& record) = 0;

  // From any thread; the bus must outlive what it returns.
  virtual std::unique_ptr<node_watch> watch_nodes() = 0;
};

// The bus that the next notification port watches: the one last set, or the host's own if that is null.
// From any thread; the bus must outlive the library's use of it.
void set_bus(bus* chosen);
bus& current_bus();

// The host's own bus.
bus& real_bus();

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_BUS_H_
