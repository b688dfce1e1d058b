// The Linux bus: uevents report arrivals and removals, sysfs describes the devices.
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <yusb_bus.h>
#include <yusb_location.h>

#include "bus/bus.h"
#include "bus/log.h"
#include "bus/settle.h"
#include "linux/details.h"
#include "linux/device.h"
#include "linux/nodes.h"
#include "linux/sysfs.h"
#include "linux/uevent_socket.h"

namespace yusb::port {

namespace {

constexpr time_t rescan_interval = 1;     // seconds, if no uevents arrive
constexpr unsigned receive_interval = 8;  // handled changes between two reads of the socket

// Queues uevents and the differences found by a rescan, in order. Each is validated when it is dequeued,
// because a rescan may already have reported its outcome.
class linux_session final : public session {
 public:
  linux_session() { mark_busy(); }
  ~linux_session() override { mark_busy(); }

  // False, with errno set, if the bus cannot be watched.
  bool open();

  std::array<int, 2> poll_fds() const override { return {_uevents.fd(), _timer.get()}; }
  std::optional<change> next() override;
  void idle() override { mark_idle(); }

 private:
  struct attached_device {
    std::string path;
    device_identity identity;
    std::uint32_t location;
  };
  using iterator = std::vector<attached_device>::iterator;

  bool set_timer(time_t seconds);
  void receive();
  bool rescan();
  std::optional<change> handle_first();
  change arrive(iterator place, const std::string& path, device_identity identity,
                device_attributes attributes);
  change depart(iterator device);
  iterator place_of(const std::string& path);
  std::uint32_t free_location(const std::string& path) const;

  uevent_socket _uevents;
  unique_fd _timer;                    // runs while uevents may not reach this network namespace
  bool _reachability_unknown = false;  // cleared by the first uevent
  bool _rescan_due = false;            // the bus must be rescanned
  unsigned _changes_handled = 0;       // since open()
  std::deque<uevent> _events;          // an `added` with devnum 0 is from a rescan: any device at that path
  std::vector<attached_device> _attached;  // as reported, in tree order
};

bool linux_session::open() {
  const netns_hears heard = _uevents.open() ? netns_hears_uevents() : netns_hears::no;
  if (heard != netns_hears::yes) {
    _timer = unique_fd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!_timer || !set_timer(rescan_interval)) return false;
  }
  if (heard == netns_hears::no) {
    YLog::output(log_warning,
                 "No USB events reach this network namespace; the bus is rescanned every second");
  }
  _reachability_unknown = heard == netns_hears::unknown;
  return rescan();
}

bool linux_session::set_timer(time_t seconds) {
  const itimerspec every = {{seconds, 0}, {seconds, 0}};
  return timerfd_settime(_timer.get(), 0, &every, nullptr) == 0;
}

std::optional<change> linux_session::next() {
  for (;;) {
    // Also between changes, so that the receive buffer does not fill up while handlers run.
    if (_events.empty() || ++_changes_handled % receive_interval == 0) receive();
    if (_events.empty()) return std::nullopt;
    if (std::optional<change> found = handle_first()) return found;
  }
}

void linux_session::receive() {
  using received = uevent_socket::received;
  uevent event;
  bool lost = false;
  for (bool more = true; more;) {
    const received what = _uevents.receive(&event);
    if (what == received::device) _events.push_back(std::move(event));
    if (what == received::lost) lost = true;
    if (_reachability_unknown && (what == received::device || what == received::other))
      _reachability_unknown = !set_timer(0);
    more = what != received::nothing;
  }
  if (lost) {
    YLog::output(log_warning, "USB events were lost; the bus is rescanned");
    // All older than the coming rescan: after an overflow the kernel queues nothing until the socket is
    // drained.
    _events.clear();
    _rescan_due = true;
  }
  std::uint64_t ticks;
  if (_timer && read(_timer.get(), &ticks, sizeof ticks) > 0) _rescan_due = true;
  if (_rescan_due && _events.empty()) _rescan_due = !rescan();
}

// Queues the differences between the bus and the reported devices as events. False, with errno set, if the
// bus cannot be read.
bool linux_session::rescan() {
  std::optional<std::vector<std::string>> paths = list_devices();
  if (!paths.has_value()) return false;
  std::vector<bool> stays(_attached.size());
  std::deque<uevent> arrived;
  for (std::string& path : *paths) {
    const iterator place = place_of(path);
    if (place != _attached.end() && place->path == path) {
      const std::optional<device_identity> identity = sysfs_device(path).identity();
      if (!identity.has_value()) return false;
      const bool same = *identity == place->identity;
      stays[static_cast<std::size_t>(place - _attached.begin())] = same;
      if (same) continue;
    }
    arrived.push_back({true, std::move(path), 0, {}});
  }
  for (std::size_t i = _attached.size(); i-- > 0;) {
    if (!stays[i]) _events.push_back({false, _attached[i].path, _attached[i].identity.devnum, {}});
  }
  _attached.reserve(_attached.size() + arrived.size());
  std::move(arrived.begin(), arrived.end(), std::back_inserter(_events));
  return true;
}

// Handles the first event, or one step of it. The event stays in the queue until all its steps are done.
std::optional<change> linux_session::handle_first() {
  const uevent& event = _events.front();
  const iterator place = place_of(event.path);
  const bool known = place != _attached.end() && place->path == event.path;
  const bool same = known && place->identity.devnum == event.devnum;
  if (!event.added && same) return depart(place);
  if (!event.added || same) {
    _events.pop_front();
    return std::nullopt;
  }

  const sysfs_device found(event.path);
  device_identity identity = found.identity().value_or(device_identity());
  if (known && !(identity == place->identity)) return depart(place);
  if (known || (event.devnum == 0 && identity.devnum == 0)) {
    _events.pop_front();
    return std::nullopt;
  }
  device_attributes attributes;
  if (event.devnum == 0 || event.devnum == identity.devnum) {
    attributes = found.read_attributes();
  } else {
    identity = {event.devnum, 0};  // already unplugged; sysfs now shows its successor, if any
  }
  if (attributes.numbers.vendor == 0) attributes.numbers = event.numbers;
  change arrived = arrive(place, event.path, identity, std::move(attributes));
  _events.pop_front();
  return arrived;
}

change linux_session::arrive(iterator place, const std::string& path, device_identity identity,
                             device_attributes attributes) {
  const std::uint32_t location = free_location(path);
  auto device =
      std::make_shared<linux_device>(location, std::move(attributes), bus_of_path(path), identity.devnum);
  _attached.insert(place, {path, identity, location});
  return {true, std::move(device)};
}

// Removes the last device at or behind a device, so that children are removed before their parents.
change linux_session::depart(iterator device) {
  iterator last = device;
  while (std::next(last) != _attached.end() && port_path_within(std::next(last)->path, device->path)) ++last;
  change departed = {false, std::make_shared<linux_device>(last->location)};
  _attached.erase(last);
  return departed;
}

linux_session::iterator linux_session::place_of(const std::string& path) {
  // Fast path: the initial scan is sorted, so this is usually an append.
  if (_attached.empty() || port_path_before(_attached.back().path, path)) return _attached.end();
  return std::lower_bound(_attached.begin(), _attached.end(), path,
                          [](const attached_device& device, const std::string& searched) {
                            return port_path_before(device.path, searched);
                          });
}

std::uint32_t linux_session::free_location(const std::string& path) const {
  std::uint32_t location = location_of_path(path).value_or(0);
  if (!location_may_collide(location)) return location;
  const auto is_taken = [&](const attached_device& device) { return device.location == location; };
  while (std::any_of(_attached.begin(), _attached.end(), is_taken)) location = next_location(location);
  return location;
}

class linux_bus final : public bus {
 public:
  std::unique_ptr<session> open() override {
    auto opened = std::make_unique<linux_session>();
    if (opened->open()) return opened;
    YLog::output(log_error, "Unable to watch the USB bus (%s)", std::strerror(errno));
    return nullptr;
  }

  std::unique_ptr<node_watch> watch_nodes() override { return std::make_unique<linux_nodes>(); }

  std::optional<usb_details> details(const record_key& record, std::error_code& error) override {
    return linux_details(record, error);
  }
};

}  // namespace

bus& real_bus() {
  static linux_bus real;
  return real;
}

}  // namespace yusb::port

bool yusb::bus_present() { return access(yusb::port::usb_devices_directory, F_OK) == 0; }
