// A queue of arrivals, removals, and reports that a device can be opened. Header-only; link the bus library
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

// The kind of an event.
enum class openable_kind {
  arrival,    // `device` was attached
  openable,   // `device`, whose arrival was reported, can be opened
  timed_out,  // `device` was not openable within the limit, and is no longer tested
  removal,    // `device` was detached
  resync,     // events were dropped; `devices` are those attached now
};

// One event of an openable_queue.
struct openable_event {
  openable_kind kind;
  YUsbInfoDevice device;                // empty in a resync
  std::vector<YUsbInfoDevice> devices;  // of a resync, in order of arrival
};

// A watch_queue that also reports when each device can be opened. Between the arrival and the removal of a
// device it reports at most one `openable` or `timed_out`, and exactly one if the device stays attached for
// the time limit. It never reports a device as openable that is already gone, even if its removal has not
// been reported yet. After a resync it reports each of its devices again. For a device that a host has
// listed and the bus does not know, it reports neither.
//
// It starts no thread: next() tests the devices, so reports wait until the client calls next(). Only one
// thread at a time may call next(); another may call close() meanwhile.
class openable_queue {
 public:
  // Starts watching. `limit` is the time in which each device should become openable, counted from when its
  // arrival is taken from the queue. `filter`, `capacity` and `end` are those of watch_queue. Throws the
  // exceptions of watch_queue's constructor and of watch_queue::descriptor.
  explicit openable_queue(std::chrono::milliseconds limit = std::chrono::seconds(30),
                          device_filter filter = {}, std::size_t capacity = 1024,
                          watch_end end = watch_end::silent)
      : _limit(limit), _events(std::move(filter), capacity, end), _descriptor(_events.descriptor()) {}

  // Takes the next event. `limit` is how long to wait for one, at most a year; 0 or less does not wait.
  // Returns nothing if the time has passed without an event, or if the queue is closed and empty. Throws
  // std::bad_alloc; no event is lost then: the next call returns it.
  std::optional<openable_event> next(std::chrono::milliseconds limit) {
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds year = std::chrono::hours(24 * 365);
    const auto end = clock::now() + std::clamp(limit, limit.zero(), year);
    for (;;) {
      if (!_taken) _taken = _events.next(limit.zero());
      if (_taken) {
        openable_event event = take(*_taken);
        _taken.reset();
        return event;
      }
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

  // Same as watch_queue::close. Events in the queue can still be taken, but no device is tested any more.
  void close() noexcept { _events.close(); }
  // True after close. May be called from any thread.
  bool closed() const noexcept { return _events.closed(); }

 private:
  struct waiting {
    unsigned id;
    YUsbInfoDevice device;
  };
  using iterator = std::vector<waiting>::iterator;

  // If it throws, it can be repeated.
  openable_event take(watch_event& event) {
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
    try {
      _nodes.add(_last, device, _limit);
    } catch (...) {
      _waiting.pop_back();
      throw;
    }
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
  std::optional<watch_event> _taken;  // of _events, not returned yet
  detail::node_waiter _nodes;
  std::vector<waiting> _waiting;  // not answered yet
  unsigned _last = 0;
};

}  // namespace yusb

#endif  // YUSB_OPENABLE_QUEUE_H_
