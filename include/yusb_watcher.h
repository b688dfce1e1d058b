// Watchers: they report each arrival and each removal exactly once, in alternation. Header-only; link what
// <yusb.h> needs, and threads.
//
// On a thread of yours, where you may call every function (yusb::watch_queue):
//
//   yusb::watch_queue queue(yusb::device_is_android);
//   while (const auto event = queue.next(std::chrono::minutes(1))) {  // until a minute passes without events
//     switch (event->kind) {
//       case yusb::watch_kind::arrival: phones.add(event->device); break;
//       case yusb::watch_kind::removal: phones.drop(event->device); break;
//       case yusb::watch_kind::resync: phones.replace_all(event->devices); break;  // the queue overflowed
//     }
//   }
//
// Immediately, under the library's locks (yusb::watcher):
//
//   yusb::watcher watcher([](const YUsbInfoDevice& device, _yusb_device_event event) {
//     std::printf("%c %s\n", event == YUSB_DEVICE_EVENT_APPEND ? '+' : '-', device.location().data());
//   });
//
// Guarantees. A watcher first reports an arrival for each device that is listed when it is constructed, then
// every change, in the order in which the list changed. For each location, arrivals and removals strictly
// alternate, an arrival first, whatever other threads do: no event is missed and none is reported twice. A
// removal carries the same record as its arrival. Attached devices that the library has not listed yet (it
// lists them shortly after yusb::global_initialize) arrive later like any other device.
//
// One location has at most one device. If the list briefly holds several records for a location (a fast
// replug), the first is the device; when it leaves the list, its removal is reported, and then the arrival of
// the next. Records without numbers (YUsbInfoDevice::empty) or without a location are never reported, nor are
// removals that removed nothing from the list. A host that changes the list itself can mislead a watcher with
// two calls of yusb::common_device_remove. With an empty record, the watcher reports no removal, even if a
// device was removed. With a record that has the location of one listed device and the instance path of
// another, the watcher assumes that the removed device is the one that has both, or else the first one that
// has either.
//
// Life cycle. Construct a watcher after yusb::global_initialize; stop or destroy it before
// yusb::global_release: using it later is undefined. There may be any number of watchers. They can be moved,
// not copied; a move does not affect events. Use one object on one thread at a time, except where watch_queue
// permits more.
//
// Threads. Construct, stop and destroy a watcher on any thread, but not in code that runs under the library's
// locks: a handler of live events, a watcher's callback or filter, the log sink. There the constructor
// throws, and stop(), close() and the destructor only silence the watcher: no removals of watch_end::removals
// are sent, and its memory and descriptor are leaked. All of them block until running handlers have returned,
// so never hold a lock that a handler takes.
//
// Exceptions. Constructors throw std::runtime_error if the library is not initialised or refuses the call, as
// described above, and std::bad_alloc if the watcher itself cannot be allocated. Callbacks and filters must
// not throw. A failed allocation terminates the process while a constructor registers with the library, and
// when an event is stored. stop(), close() and destructors do not allocate, except for the removals that a
// queue stores at its end (watch_end::removals).
#ifndef YUSB_WATCHER_H_
#define YUSB_WATCHER_H_

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <yusb.h>
#include <yusb_filter.h>
#include <yusb_watcher/readiness.h>
#include <yusb_watcher/subscription.h>

namespace yusb {

// How a watcher ends: silently, or with a removal for each device that it has reported and that is still
// attached.
enum class watch_end { silent, removals };

// Receives a record and what happened to the device; called like a handler under the library's locks.
using watch_callback = std::function<void(const YUsbInfoDevice&, _yusb_device_event)>;

// Invokes a callback for every device that is attached or detached, immediately.
//
// The callback runs in the constructor, on its thread, for the devices that are already listed; then on the
// thread that changes the list, which is the library's monitor thread; and in the destructor, on its thread,
// for the removals of watch_end::removals. Calls never overlap. The rules are those of a handler under the
// library's locks (yusb_device_event_interface): copy the record if you need it later, do not block, do not
// throw, and call no function of the library that takes a lock (it is refused). The filter is called in the
// same places, once per device, at its arrival; an empty filter keeps every device. Objects that callback and
// filter refer to must outlive the watcher.
class watcher {
 public:
  // Watches nothing.
  watcher() = default;

  // Starts watching. `callback` is called for each event. `filter` is called once per device, at its arrival.
  // `end` decides whether stop() and the destructor cause removals. Throws std::invalid_argument if the
  // callback is empty, and as described at the top of this file.
  explicit watcher(watch_callback callback, device_filter filter = {}, watch_end end = watch_end::silent) {
    if (!callback) throw std::invalid_argument("yusb::watcher: the callback is empty");
    auto made = std::make_unique<detail::subscription>(std::move(callback), std::move(filter),
                                                       end == watch_end::removals);
    made->start();
    _subscription.reset(made.release());
  }

  // Stops watching, as the destructor does: the callback is not called again after this returns. Does nothing
  // if nothing is watched.
  void stop() noexcept { _subscription.reset(); }

 private:
  std::unique_ptr<detail::subscription, detail::finish_subscription> _subscription;
};

// The kind of an event.
enum class watch_kind {
  arrival,  // `device` was attached
  removal,  // `device` was detached
  resync,   // events were dropped; `devices` are those attached now
};

// One event of a watch_queue.
struct watch_event {
  watch_kind kind;
  YUsbInfoDevice device;                // of an arrival or removal; otherwise empty
  std::vector<YUsbInfoDevice> devices;  // of a resync, in order of arrival; otherwise none
};

// Stores events until the client takes them, on a thread of its own and without a lock of the library. A slow
// client delays neither the library nor other clients.
//
// The queue is bounded. If it is full when an event occurs, all events in it are dropped, and the next one
// that the client takes is a resync with a snapshot made at that moment; the events after it are the changes
// since then. On a resync a client replaces its list of attached devices by event.devices. Devices that only
// the client's list had are gone, those that only event.devices has are new (YUsbInfoDevice::operator==
// compares locations), and those in both may have been detached and attached again. If more devices are
// attached at the start than the queue can hold, the first event is a resync.
class watch_queue {
 public:
  // Starts watching; arrivals of the listed devices are in the queue when this returns. `filter` is called as
  // by a watcher. `capacity` is in events, of about 100 bytes each plus the strings; with 0, every event is a
  // resync. `end` decides whether close() and the destructor cause removals. Throws std::runtime_error and
  // std::bad_alloc as described at the top of this file.
  explicit watch_queue(device_filter filter = {}, std::size_t capacity = 1024,
                       watch_end end = watch_end::silent)
      : _state(std::make_shared<state>(capacity)),
        _watcher([state = _state](const auto& device, auto event) { state->put(device, event); },
                 std::move(filter), end) {}

  // Takes the next event. `limit` is how long to wait for one, at most a year; 0 or less does not wait.
  // Returns nothing if the time has passed without an event, or if the queue is closed and empty. Several
  // threads may call it at the same time: each event goes to one of them. Throws std::bad_alloc if the
  // devices of a resync cannot be copied; the resync then stays in the queue. No other event allocates.
  std::optional<watch_event> next(std::chrono::milliseconds limit) {
    limit = std::clamp<std::chrono::milliseconds>(limit, limit.zero(), std::chrono::hours(24 * 365));
    std::unique_lock<std::mutex> lock(_state->mutex);
    _state->changed.wait_for(lock, limit, [this] { return _state->ready(); });
    return _state->take();
  }

  // Returns a file descriptor for an event loop: for poll, select, epoll and kqueue it is readable while
  // next(0ms) would return an event, and permanently after the queue is closed. This is exact whenever no
  // thread is in a function of the queue. In an edge-triggered loop (EPOLLET, EV_CLEAR), take events until
  // there are none.
  //
  // The queue owns the descriptor: it stays the same if the queue is moved, and is closed when the queue is
  // destroyed. Remove it from the loop before that, and do not read, write or close it. Programs started with
  // exec do not inherit it (except, on other systems than Linux, one that is started during the first call).
  // A forked child must not use it.
  //
  // The first call opens it, an eventfd on Linux and a pipe elsewhere. From then on, the first event in an
  // empty queue costs a system call, and so does taking the last one. May be called from any thread. Throws
  // std::system_error if no descriptor can be opened; the queue keeps working, and a later call tries again.
  // Since 5.1.0.
  int descriptor() {
    const std::lock_guard<std::mutex> lock(_state->mutex);
    const int descriptor = _state->readable.descriptor();
    _state->readable.set(_state->ready());
    return descriptor;
  }

  // Stops watching, as the destructor of a watcher does, and wakes the threads that wait in next. The events
  // in the queue, followed by the removals of watch_end::removals, can still be taken. One thread may call it
  // while others are in next; destroy the queue when they have returned. A second call does nothing.
  void close() noexcept {
    _watcher.stop();
    const std::lock_guard<std::mutex> lock(_state->mutex);
    _state->closed = true;
    _state->changed.notify_all();
    _state->readable.set(true);
  }

  // True after close. May be called from any thread.
  bool closed() const noexcept { return _state->closed; }

 private:
  struct state {
    explicit state(std::size_t limit) : capacity(limit) {}

    bool ready() const { return dropped || closed || !events.empty(); }

    void put(const YUsbInfoDevice& device, _yusb_device_event event) {
      const bool arrival = event == YUSB_DEVICE_EVENT_APPEND;
      const std::lock_guard<std::mutex> lock(mutex);
      if (arrival) known_devices.push_back(device);
      if (!arrival) known_devices.erase(std::find(known_devices.begin(), known_devices.end(), device));
      dropped = dropped || events.size() >= capacity;
      if (dropped) events.clear();
      if (!dropped) events.push_back({arrival ? watch_kind::arrival : watch_kind::removal, device, {}});
      changed.notify_one();
      readable.set(true);
    }

    std::optional<watch_event> take() {
      std::optional<watch_event> event;
      if (dropped) {
        event = {watch_kind::resync, {}, known_devices};  // throws before anything has changed
        dropped = false;
      } else if (!events.empty()) {
        event = std::move(events.front());
        events.pop_front();
      }
      readable.set(ready());
      return event;
    }

    const std::size_t capacity;
    std::mutex mutex;  // guards all members below except `closed`
    std::condition_variable changed;
    detail::readiness readable;  // set while ready() is true
    std::deque<watch_event> events;
    std::vector<YUsbInfoDevice> known_devices;  // those of a client that has taken every event
    bool dropped = false;                       // events were, and no resync was taken since
    std::atomic<bool> closed{false};
  };

  std::shared_ptr<state> _state;
  watcher _watcher;
};

}  // namespace yusb

#endif  // YUSB_WATCHER_H_
