// Devices of a host that has none, for tests and measurements.
#ifndef YUSB_FLEET_BENCH_GENERATOR_H_
#define YUSB_FLEET_BENCH_GENERATOR_H_

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "fleet/agent.h"
#include "format/utf8.h"

namespace yusb::fleet {

using picture = std::map<std::string, std::uint64_t>;  // digests by HOST/NAME

class generator final : public device_source {
 public:
  explicit generator(unsigned count = 0, unsigned first = 0) {
    for (unsigned i = first; i < first + count; ++i) _attached[name(i)] = payload(i, 0);
    report({device_change::kind::reset, {}, {}, _attached});
  }
  ~generator() override { close(_ready); }

  void attach(unsigned number, unsigned version = 0) {
    _attached[name(number)] = payload(number, version);
    report({device_change::kind::set, name(number), _attached[name(number)], {}});
  }
  void detach(unsigned number) {
    _attached.erase(name(number));
    report({device_change::kind::removal, name(number), {}, {}});
  }
  // The device is detached, and only the next reset reports it.
  void lose(unsigned number) { _attached.erase(name(number)); }
  // Another device replaces this one, and only a reset reports it.
  void reset_with_another(unsigned number) {
    std::string& there = _attached.at(name(number));
    const std::string serial = "\"S" + std::to_string(number) + "\"";
    there.replace(there.find(serial), serial.size(), "\"another\"");
    report({device_change::kind::reset, {}, {}, _attached});
  }
  bool has(const std::string& device) const { return _attached.count(device) != 0; }
  picture truth(const std::string& host) const {
    picture made;
    for (const auto& [name, text] : _attached) made[host + "/" + name] = digest(name, text);
    return made;
  }

  static std::string name(unsigned number) {
    return format::utf8(YString::format("0x%X", 0x1000000 + number));
  }
  int descriptor() override { return _ready; }
  std::optional<device_change> next() override {
    if (_changes.empty()) {
      eventfd_t count;
      eventfd_read(_ready, &count);
      return std::nullopt;
    }
    device_change change = std::move(_changes.front());
    _changes.pop_front();
    return change;
  }

 private:
  // A phone with ADB.
  static std::string payload(unsigned number, unsigned version) {
    format::event event{std::chrono::system_clock::now(), format::event_kind::arrival, {}, false};
    usb_details details;
    details.vendor = 0x18d1;
    details.product = 0x4ee7;
    details.release = static_cast<std::uint16_t>(version);
    details.bus = 1;
    details.address = number + 2;
    details.port_path = "1-" + std::to_string(number + 1);
    details.speed = 480;
    details.manufacturer = "Maker";
    details.product_name = "Phone";
    details.serial_number = "S" + std::to_string(number);
    details.interfaces.push_back({0, 0xff, 0x42, 0x01, "ADB", ""});
    event.device.record.setLocation(YString::format("0x%X", 0x1000000 + number));
    event.device.record.setVendorID(details.vendor);
    event.device.record.setProductID(details.product);
    event.device.record.setRevisedID(details.release);
    event.device.record.setSerialNumber(YString::format("S%u", number));
    event.device.details = std::move(details);
    return device_payload(event, true);
  }
  void report(device_change change) {
    _changes.push_back(std::move(change));
    eventfd_write(_ready, 1);
  }

  const int _ready = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::map<std::string, std::string> _attached;
  std::deque<device_change> _changes;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_BENCH_GENERATOR_H_
