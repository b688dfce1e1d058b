#include <yusb_simulator.h>

#include <YorvanCore/YLog.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "apple/object.h"
#include "bus/bus.h"
#include "bus/settle.h"
#include "bus/utf16.h"

namespace yusb {

namespace {

using port::status;

// The description and what happened to it. Shared by the simulator and whoever still holds the device.
class attachment : public port::device {
 public:
  explicit attachment(const simulated_device& described) : _described(described) {}

  port::grant plugin() override { return {_described.plugin_status, !_described.plugin_missing}; }
  port::grant device_interface() override {
    return {_described.interface_status, !_described.interface_missing};
  }

  status get(port::number which, std::uint32_t* value) override {
    if (_described.failing.count(static_cast<simulated_number>(which)) != 0) return port::status_error;
    switch (which) {
      case port::number::vendor:
        *value = _described.vendor;
        break;
      case port::number::product:
        *value = _described.product;
        break;
      case port::number::release:
        *value = _described.release;
        break;
      case port::number::location:
        *value = _described.location;
        break;
      case port::number::manufacturer_index:
        *value = _described.manufacturer.has_value() ? 1 : 0;
        break;
      case port::number::product_index:
        *value = _described.product_name.has_value() ? 2 : 0;
        break;
      case port::number::serial_number_index:
        *value = _described.serial_number.has_value() ? 3 : 0;
        break;
    }
    return port::status_ok;
  }

  status control(port::control_request& request) override {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _requests.push_back(
          {request.request_type, request.request, request.value, request.index, request.length});
      if (_gone) return port::status_no_device;
    }
    const simulated_reply reply = answer(request);
    std::this_thread::sleep_for(reply.delay);
    if (reply.status != port::status_ok) return reply.status;
    request.transferred =
        static_cast<std::uint32_t>(std::min<std::size_t>(reply.bytes.size(), request.length));
    if (request.transferred != 0) std::memcpy(request.data, reply.bytes.data(), request.transferred);
    return port::status_ok;
  }

  std::optional<std::uint32_t> registry_location() override {
    return _described.location_property ? std::optional<std::uint32_t>(_described.location) : std::nullopt;
  }

  void leave() {
    const std::lock_guard<std::mutex> lock(_mutex);
    _gone = true;
  }

  std::vector<simulated_request> requests() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _requests;
  }

 private:
  simulated_reply answer(const port::control_request& request) const {
    const bool string = request.request_type == 0x80 && request.request == 6 && request.value >> 8 == 3;
    const int index = request.value & 0xFF;
    if (!string || index < 1 || index > 3) return {port::status_stalled, {}, {}};
    const auto replaced = _described.replies.find(index);
    if (replaced != _described.replies.end()) return replaced->second;
    const std::optional<std::string>* const texts[] = {&_described.manufacturer, &_described.product_name,
                                                       &_described.serial_number};
    const std::optional<std::string>& text = *texts[index - 1];
    if (!text.has_value()) return {port::status_stalled, {}, {}};
    const port::string_descriptor made = port::encode_string_descriptor(*text);
    return {port::status_ok,
            {made.bytes.begin(), made.bytes.begin() + static_cast<std::ptrdiff_t>(made.size)},
            {}};
  }

  const simulated_device _described;
  mutable std::mutex _mutex;
  bool _gone = false;                        // under _mutex
  std::vector<simulated_request> _requests;  // under _mutex
};

}  // namespace

struct simulator::implementation : port::bus, std::enable_shared_from_this<simulator::implementation> {
  class watch;

  mutable std::mutex mutex;
  int last_id = 0;                                      // under mutex
  std::map<int, std::shared_ptr<attachment>> attached;  // under mutex; numbers rise, so in order of arrival
  std::vector<watch*> watches;                          // under mutex

  std::unique_ptr<port::session> open() override;
  void tell(const port::change& change);
};

// One session: the changes that its reader has not taken yet.
class simulator::implementation::watch : public port::session {
 public:
  explicit watch(std::shared_ptr<implementation> bus)
      : _bus(std::move(bus)), _readable(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    const std::lock_guard<std::mutex> lock(_bus->mutex);
    port::mark_busy();
    for (const auto& [id, device] : _bus->attached) _changes.push_back({true, device});
    _bus->watches.push_back(this);
  }

  ~watch() override {
    const std::lock_guard<std::mutex> lock(_bus->mutex);
    auto& watches = _bus->watches;
    watches.erase(std::find(watches.begin(), watches.end(), this));
    port::mark_busy();
    if (_readable >= 0) close(_readable);
  }

  std::array<int, 2> descriptors() const override { return {_readable, -1}; }

  std::optional<port::change> next() override {
    const std::lock_guard<std::mutex> lock(_bus->mutex);
    if (_changes.empty()) return std::nullopt;
    port::change next = std::move(_changes.front());
    _changes.pop_front();
    return next;
  }

  void idle() override {
    const std::lock_guard<std::mutex> lock(_bus->mutex);
    if (!_changes.empty()) return;
    eventfd_t count;
    eventfd_read(_readable, &count);
    port::mark_idle();
  }

  // With the bus's mutex held.
  void push(const port::change& change) {
    _changes.push_back(change);
    eventfd_write(_readable, 1);
    port::mark_busy();
  }

 private:
  const std::shared_ptr<implementation> _bus;
  const int _readable;
  std::deque<port::change> _changes;  // under _bus->mutex
};

std::unique_ptr<port::session> simulator::implementation::open() {
  auto opened = std::make_unique<watch>(shared_from_this());
  if (opened->descriptors()[0] >= 0) return opened;
  YLog::output(static_cast<EYORVAN_LOG_LEVEL>(4), "No descriptor is left for the simulated bus");
  return nullptr;
}

void simulator::implementation::tell(const port::change& change) {
  for (watch* const each : watches) each->push(change);
}

simulator::simulator() : _implementation(std::make_shared<implementation>()) {
  port::set_bus(_implementation.get());
}

simulator::~simulator() {
  before_calls(nullptr);
  port::set_bus(nullptr);
}

int simulator::plug(const simulated_device& device) {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const int id = ++_implementation->last_id;
  const auto made = std::make_shared<attachment>(device);
  _implementation->attached.emplace(id, made);
  _implementation->tell({true, made});
  return id;
}

bool simulator::unplug(int id) {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const auto found = _implementation->attached.find(id);
  if (found == _implementation->attached.end()) return false;
  found->second->leave();
  _implementation->tell({false, found->second});
  _implementation->attached.erase(found);
  return true;
}

bool simulator::settle(std::chrono::milliseconds limit) { return bus_settle(limit); }

std::vector<simulated_request> simulator::requests(int id) const {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const auto found = _implementation->attached.find(id);
  return found == _implementation->attached.end() ? std::vector<simulated_request>()
                                                  : found->second->requests();
}

std::vector<std::string> simulator::leaks() {
  std::vector<std::string> found;
  for (std::size_t i = 0; i < static_cast<std::size_t>(port::kind::count); ++i) {
    const auto which = static_cast<port::kind>(i);
    if (const long left = port::alive(which))
      found.push_back(std::string(port::name_of(which)) + ": " + std::to_string(left));
  }
  return found;
}

void simulator::before_calls(std::function<bool(const char* call)> hook) {
  port::set_call_hook(std::move(hook));
}

}  // namespace yusb
