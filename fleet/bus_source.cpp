#include "bus_source.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include <yusb_bus.h>
#include <yusb_openable.h>

#include "format/utf8.h"

namespace yusb::fleet {

namespace {

int opened_eventfd() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

std::string key(const YUsbInfoDevice& record) { return format::utf8(record.location()); }

}  // namespace

bus_source::bus_source(format::filter filter, std::function<void()> unreadable)
    : _filter(std::move(filter)), _unreadable(std::move(unreadable)), _ready(opened_eventfd()) {
  _thread = std::thread([this] { run(); });
}

bus_source::~bus_source() {
  _queue.close();
  _thread.join();
  close(_ready);
}

std::optional<device_change> bus_source::next() {
  const std::lock_guard<std::mutex> lock(_mutex);
  eventfd_t count;
  eventfd_read(_ready, &count);
  if (_changes.empty()) return std::nullopt;
  device_change change = std::move(_changes.front());
  _changes.pop_front();
  if (!_changes.empty()) eventfd_write(_ready, 1);
  return change;
}

void bus_source::report(device_change change) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _changes.push_back(std::move(change));
  eventfd_write(_ready, 1);
}

void bus_source::add(const YUsbInfoDevice& record, std::map<std::string, std::string>* devices) const {
  format::event event{std::chrono::system_clock::now(), format::event_kind::arrival, format::look_up(record),
                      false};
  if (_filter && !_filter(event.device)) return;
  const bool openable = wait_openable(record, std::chrono::milliseconds(0)) == openability::openable;
  devices->insert_or_assign(key(record), device_payload(event, openable));
}

void bus_source::run() {
  bool readable = bus_settle();
  const std::chrono::milliseconds now(0);
  std::map<std::string, std::string> devices;
  while (const auto event = _queue.next(now)) {
    readable = true;  // a bus that does not stop changing
    if (event->kind == openable_kind::removal) devices.erase(key(event->device));
    if (event->kind == openable_kind::resync) devices.clear();
    for (const YUsbInfoDevice& each : event->devices) add(each, &devices);
    if (event->kind != openable_kind::removal && event->kind != openable_kind::resync)
      add(event->device, &devices);
  }
  if (!readable && !_queue.closed()) return _unreadable();
  _known = devices;
  report({device_change::kind::reset, {}, {}, std::move(devices)});
  while (!_queue.closed()) {
    if (const auto event = _queue.next(std::chrono::hours(1))) handle(*event);
  }
}

void bus_source::handle(const openable_event& event) {
  std::map<std::string, std::string> devices;
  if (event.kind == openable_kind::resync) {
    for (const YUsbInfoDevice& each : event.devices) add(each, &devices);
    _known = devices;
    return report({device_change::kind::reset, {}, {}, std::move(devices)});
  }
  if (event.kind != openable_kind::removal) add(event.device, &devices);
  const std::string name = key(event.device);
  if (devices.empty()) {
    if (_known.erase(name) != 0) report({device_change::kind::removal, name, {}, {}});
    return;
  }
  _known.insert(devices.begin(), devices.end());
  report({device_change::kind::set, name, devices.begin()->second, {}});
}

}  // namespace yusb::fleet
