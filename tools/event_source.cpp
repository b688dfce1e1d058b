#include "event_source.h"

#include <algorithm>
#include <utility>

#include <yusb_bus.h>

#include "countdown.h"

namespace yusb::tool {

namespace {

using std::chrono::milliseconds;

// How often events are looked for until the first enumeration is over.
constexpr milliseconds enumeration_step(20);
// How many events to collect before they are handed out, so that a flood is shown while it lasts.
constexpr std::size_t largest_batch = 1000;

openable_event converted(watch_event event) {
  const openable_kind kind = event.kind == watch_kind::arrival   ? openable_kind::arrival
                             : event.kind == watch_kind::removal ? openable_kind::removal
                                                                 : openable_kind::resync;
  return {kind, std::move(event.device), std::move(event.devices)};
}

}  // namespace

event_source::event_source(settings chosen) : _filter(std::move(chosen.filter)), _collect(chosen.collect) {
  // Under the library's locks: here the device is still attached, so its details can be read.
  const device_filter keep = [this](const YUsbInfoDevice& record) {
    format::known_device device = format::look_up(record);
    if (_filter && !_filter(device)) return false;
    _known.arrived(std::move(device));
    return true;
  };
  if (chosen.open_limit) {
    _openable.emplace(*chosen.open_limit, keep);
  } else {
    _plain.emplace(keep);
  }
}

std::vector<format::event> event_source::next(milliseconds limit) {
  const countdown remaining(limit);
  do {
    if (!_settled) _settled = bus_settle(std::min(remaining.left(), _collect));
    _collect = enumeration_step;
    std::vector<format::event> events = take_all(_listed ? remaining.left() : milliseconds(0));
    if (!events.empty()) return events;
    if (_settled && !_listed) {
      _listed = true;
      return {};
    }
  } while (!closed() && !remaining.over());
  return {};
}

void event_source::close() noexcept { _plain ? _plain->close() : _openable->close(); }

bool event_source::closed() const noexcept { return _plain ? _plain->closed() : _openable->closed(); }

std::optional<openable_event> event_source::take(milliseconds limit) {
  if (_openable) return _openable->next(limit);
  std::optional<watch_event> event = _plain->next(limit);
  if (!event) return std::nullopt;
  return converted(std::move(*event));
}

std::vector<format::event> event_source::take_all(milliseconds limit) {
  std::vector<format::event> events;
  for (auto event = take(limit); event; event = take(milliseconds(0))) {
    const auto changes = _known.apply(*event, std::chrono::system_clock::now(), !_listed);
    events.insert(events.end(), changes.begin(), changes.end());
    if (events.size() >= largest_batch) break;
  }
  return events;
}

}  // namespace yusb::tool
