#include <yusb_simulator.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

#include "bus/bus.h"
#include "bus/log.h"
#include "bus/settle.h"
#include "simulator/attachment.h"
#include "simulator/nodes.h"

namespace yusb {

using port::attachment;

struct simulator::implementation : port::bus, std::enable_shared_from_this<simulator::implementation> {
  class watch;

  mutable std::mutex mutex;
  int last_id = 0;                                      // under mutex
  std::map<int, std::shared_ptr<attachment>> attached;  // under mutex; in order of arrival: IDs increase
  std::vector<watch*> watches;                          // under mutex

  std::unique_ptr<port::session> open() override;
  std::optional<usb_details> details(const port::record_key& record, std::error_code& error) override;
  std::unique_ptr<port::node_watch> watch_nodes() override;
  void tell(const port::change& change);

  // Null if no device with that ID is attached. Call with the mutex held.
  std::shared_ptr<attachment> find(int id) const {
    const auto found = attached.find(id);
    return found == attached.end() ? nullptr : found->second;
  }
};

// A session. It queues the changes that its reader has not taken yet.
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

  std::array<int, 2> poll_fds() const override { return {_readable, -1}; }

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

  // Call with the bus's mutex held.
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
  if (opened->poll_fds()[0] >= 0) return opened;
  YLog::output(port::log_error, "Unable to open a descriptor for the simulated bus");
  return nullptr;
}

std::optional<usb_details> simulator::implementation::details(const port::record_key& record,
                                                              std::error_code& /*error*/) {
  const std::lock_guard<std::mutex> lock(mutex);
  for (const auto& [id, device] : attached) {
    if (std::optional<usb_details> found = device->details(record)) return found;
  }
  return std::nullopt;
}

std::unique_ptr<port::node_watch> simulator::implementation::watch_nodes() {
  return std::make_unique<port::simulated_nodes>([self = shared_from_this()](const port::record_key& record) {
    const std::lock_guard<std::mutex> lock(self->mutex);
    for (const auto& [id, device] : self->attached) {
      if (device->details(record).has_value()) return device;
    }
    return std::shared_ptr<attachment>();
  });
}

void simulator::implementation::tell(const port::change& change) {
  for (watch* const each : watches) each->push(change);
}

// leaks and before_calls are defined in port/apple, whose objects and calls they concern.

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
  const auto made = std::make_shared<attachment>(device, id);
  _implementation->attached.emplace(id, made);
  _implementation->tell({true, made});
  return id;
}

bool simulator::unplug(int id) {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const auto found = _implementation->find(id);
  if (found == nullptr) return false;
  found->leave();
  _implementation->tell({false, found});
  _implementation->attached.erase(id);
  return true;
}

bool simulator::open_node(int id) {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const auto found = _implementation->find(id);
  if (found == nullptr) return false;
  found->open_node();
  return true;
}

bool simulator::settle(std::chrono::milliseconds limit) { return bus_settle(limit); }

std::vector<simulated_request> simulator::requests(int id) const {
  const std::lock_guard<std::mutex> lock(_implementation->mutex);
  const auto found = _implementation->find(id);
  return found == nullptr ? std::vector<simulated_request>() : found->requests();
}

}  // namespace yusb
