// Arrivals, removals, and when each device can be opened, from one queue. Header-only; link the bus library
// and what <yusb_watcher.h> needs.
//
//   yusb::openable_queue queue;
//   while (const auto event = queue.next(std::chrono::minutes(1))) {
//     if (event->kind == yusb::openable_kind::openable) open(event->device);
//   }
#ifndef YUSB_OPENABLE_QUEUE_H_
#define YUSB_OPENABLE_QUEUE_H_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include <yusb.h>
#include <yusb_openable.h>
#include <yusb_watcher.h>

namespace yusb {

enum class openable_kind {
  arrival,    // `device` was attached
  openable,   // `device`, whose arrival was reported, can be opened now
  timed_out,  // `device` was not openable in time; no more is said about that
  removal,    // `device` was detached
  resync,     // events were dropped; `devices` is what is attached now
};

struct openable_event {
  openable_kind kind;
  YUsbInfoDevice device;                // not of a resync
  std::vector<YUsbInfoDevice> devices;  // of a resync, in order of arrival
};

// A watch_queue that also reports when each device can be opened. Between a device's arrival and its removal
// comes at most one `openable` or `timed_out`, and exactly one if the device stays attached for the time
// limit. A device that is already gone is never reported openable, even if its removal is still to come.
// After a resync every device in it is answered again. A device that a host has listed and the bus does not
// know is not answered.
//
// It uses no thread: devices are checked in next(), so a client that is not in next() learns of a node later.
// One thread at a time calls next; close may be called by another one meanwhile.
class openable_queue {
 public:
  // `limit` is how long each device may take, counted from when its arrival is taken from the queue. The rest
  // is as for watch_queue. Throws what watch_queue's constructor and watch_queue::descriptor throw.
  explicit openable_queue(std::chrono::milliseconds limit = std::chrono::seconds(30),
                          device_filter filter = {}, std::size_t capacity = 1024,
                          watch_end end = watch_end::silent)
      : _limit(limit), _events(std::move(filter), capacity, end), _descriptor(_events.descriptor()) {}

  // Takes the next event; waits for one as long as `limit`, at most a year; with 0 or less it does not wait.
  // Empty when the time has passed without an event, or when the queue is closed and empty. Throws
  // std::bad_alloc; after that, answers may be missing.
  std::optional<openable_event> next(std::chrono::milliseconds limit) {
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds year = std::chrono::hours(24 * 365);
    const auto end = clock::now() + std::clamp(limit, limit.zero(), year);
    for (;;) {
      if (auto event = _events.next(limit.zero())) return take(std::move(*event));
      if (_events.closed()) return std::nullopt;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now());
      if (const auto answer = _nodes.wait(left, _descriptor)) {
        YUsbInfoDevice device = forget(find(answer->id));
        if (answer->result == openability::openable)
          return openable_event{openable_kind::openable, device, {}};
        if (answer->result == openability::timed_out)
          return openable_event{openable_kind::timed_out, device, {}};
      } else if (left <= left.zero()) {
        return std::nullopt;
      }
    }
  }

  // As watch_queue::close. What is queued can still be taken, without further answers.
  void close() noexcept { _events.close(); }
  bool closed() const noexcept { return _events.closed(); }

 private:
  struct waiting {
    unsigned id;
    YUsbInfoDevice device;
  };
  using iterator = std::vector<waiting>::iterator;

  openable_event take(watch_event event) {
    const bool arrival = event.kind == watch_kind::arrival;
    if (event.kind == watch_kind::resync) {
      while (!_waiting.empty()) stop(_waiting.begin());
      for (const YUsbInfoDevice& device : event.devices) start(device);
      return {openable_kind::resync, {}, std::move(event.devices)};
    }
    if (arrival) {
      start(event.device);
    } else {
      stop(std::find_if(_waiting.begin(), _waiting.end(),
                        [&](const waiting& each) { return each.device == event.device; }));
    }
    return {arrival ? openable_kind::arrival : openable_kind::removal, std::move(event.device), {}};
  }

  void start(const YUsbInfoDevice& device) {
    _waiting.push_back({++_last, device});
    _nodes.add(_last, device, _limit);
  }

  void stop(iterator ended) {
    if (ended == _waiting.end()) return;
    _nodes.remove(ended->id);
    _waiting.erase(ended);
  }

  iterator find(unsigned id) {
    return std::find_if(_waiting.begin(), _waiting.end(),
                        [id](const waiting& each) { return each.id == id; });
  }

  YUsbInfoDevice forget(iterator answered) {
    YUsbInfoDevice device = answered->device;
    _waiting.erase(answered);
    return device;
  }

  const std::chrono::milliseconds _limit;
  watch_queue _events;
  const int _descriptor;
  detail::node_waiter _nodes;
  std::vector<waiting> _waiting;  // not answered yet
  unsigned _last = 0;
};

}  // namespace yusb

#endif  // YUSB_OPENABLE_QUEUE_H_
