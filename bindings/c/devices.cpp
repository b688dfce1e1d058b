// The device list, and the details of a device.
#include <memory>

#include <yusb.h>
#include <yusb_details.h>
#include <yusb_openable.h>

#include "convert.h"
#include "life.h"

using namespace yusb::c;

static_assert(static_cast<unsigned>(YUSB_MODE_BLUETOOTH) + 1 == yusb::device_mode_count);

namespace {

class details_copy : public yusb_details {
 public:
  explicit details_copy(yusb::usb_details read) : yusb_details{}, _read(std::move(read)) {
    size = sizeof(yusb_details);
    bus = _read.bus;
    address = _read.address;
    port_path = _read.port_path.c_str();
    device_node = _read.device_node.c_str();
    speed = _read.speed;
    usb_version = _read.usb_version;
    class_code = _read.class_code;
    subclass = _read.subclass;
    protocol = _read.protocol;
    configurations = _read.configurations;
    active_configuration = _read.active_configuration;
    max_power = _read.max_power;
    for (const yusb::device_mode mode : yusb::device_modes(_read).list()) {
      modes |= std::uint64_t(1) << static_cast<unsigned>(mode);
    }
    manufacturer = _read.manufacturer.c_str();
    product_name = _read.product_name.c_str();
    serial_number = _read.serial_number.c_str();

    _interfaces.reserve(_read.interfaces.size());  // _pointers point into it
    _pointers.reserve(_read.interfaces.size());
    for (const yusb::usb_interface& each : _read.interfaces) {
      _interfaces.push_back({sizeof(yusb_interface), each.number, each.class_code, each.subclass,
                             each.protocol, each.name.c_str(), each.driver.c_str()});
      _pointers.push_back(&_interfaces.back());
    }
    interface_count = _pointers.size();
    interfaces = _pointers.data();
  }
  details_copy(const details_copy&) = delete;
  details_copy& operator=(const details_copy&) = delete;

 private:
  const yusb::usb_details _read;
  std::vector<yusb_interface> _interfaces;
  std::vector<const yusb_interface*> _pointers;
};

}  // namespace

yusb_status yusb_devices(yusb_device_list** list) {
  if (list == nullptr) return YUSB_INVALID_ARGUMENT;
  *list = nullptr;
  const use used;
  if (used.status() != YUSB_OK) return used.status();
  return without_exceptions([&] {
    std::vector<YUsbInfoDevice> records;
    bool out_of_memory = false;  // a visitor must not throw
    yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
      try {
        records.push_back(record);
      } catch (const std::bad_alloc&) {
        out_of_memory = true;
      }
      return !out_of_memory;
    });
    if (out_of_memory) return YUSB_OUT_OF_MEMORY;
    *list = new device_list_copy(records);
    return YUSB_OK;
  });
}

yusb_status yusb_device_list_free(yusb_device_list* list) {
  delete static_cast<device_list_copy*>(list);
  return YUSB_OK;
}

yusb_status yusb_device_details(const yusb_device* device, yusb_details** details) {
  if (details == nullptr) return YUSB_INVALID_ARGUMENT;
  *details = nullptr;
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    YUsbInfoDevice record;
    if (const yusb_status status = read_device(device, &record)) return status;
    auto read = yusb::device_details(record);
    if (!read) return YUSB_GONE;
    *details = new details_copy(std::move(*read));
    return YUSB_OK;
  });
}

yusb_status yusb_details_free(yusb_details* details) {
  delete static_cast<details_copy*>(details);
  return YUSB_OK;
}

yusb_status yusb_mode_name(yusb_mode mode, const char** name) {
  if (name == nullptr) return YUSB_INVALID_ARGUMENT;
  *name = nullptr;
  if (is_forked()) return YUSB_FORKED;
  if (static_cast<unsigned>(mode) >= yusb::device_mode_count) return YUSB_UNSUPPORTED;
  *name = yusb::to_string(static_cast<yusb::device_mode>(mode));
  return YUSB_OK;
}

yusb_status yusb_parse_mode(const char* name, yusb_mode* mode) {
  if (mode == nullptr) return YUSB_INVALID_ARGUMENT;
  *mode = yusb_mode();
  if (name == nullptr) return YUSB_INVALID_ARGUMENT;
  if (is_forked()) return YUSB_FORKED;
  const auto parsed = yusb::parse_device_mode(name);
  if (!parsed) return YUSB_UNSUPPORTED;
  *mode = static_cast<yusb_mode>(*parsed);
  return YUSB_OK;
}

yusb_status yusb_wait_openable(const yusb_device* device, std::int64_t limit) {
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    YUsbInfoDevice record;
    if (const yusb_status status = read_device(device, &record)) return status;
    switch (yusb::wait_openable(record, limit_of(limit))) {
      case yusb::openability::openable:
        return YUSB_OK;
      case yusb::openability::gone:
        return YUSB_GONE;
      case yusb::openability::timed_out:
        return YUSB_TIMED_OUT;
      case yusb::openability::refused:
        break;
    }
    return YUSB_REFUSED;
  });
}
