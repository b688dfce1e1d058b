// A device of the Linux bus.
#ifndef YORVAN_PORT_LINUX_DEVICE_H_
#define YORVAN_PORT_LINUX_DEVICE_H_

#include <string>
#include <utility>

#include "bus/bus.h"
#include "linux/sysfs.h"

namespace yusb::port {

// Answers from the attributes read at its arrival; only a request that these cannot answer goes to the
// device.
class linux_device final : public device {
 public:
  linux_device(std::uint32_t location, device_attributes attributes, std::uint32_t bus, std::uint32_t devnum)
      : _location(location), _attributes(std::move(attributes)), _bus(bus), _devnum(devnum) {}

  // A device that is gone: only its location is known.
  explicit linux_device(std::uint32_t location) : _location(location) {}

  port::status read(device_field field, std::uint32_t* value) override;
  port::status control(control_request& request) override;
  std::optional<std::uint32_t> registry_location() override { return _location; }

 private:
  // Empty if the string with this index is not known.
  std::string_view text(std::uint8_t index) const;
  port::status ask_device(control_request& request) const;

  const std::uint32_t _location;
  const device_attributes _attributes;
  const std::uint32_t _bus = 0;
  const std::uint32_t _devnum = 0;  // 0 if the device is gone
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_DEVICE_H_
