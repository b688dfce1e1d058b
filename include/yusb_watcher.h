// Devices as they come and go, exactly: every arrival once, every removal once, in turn. Header-only; link
// what <yusb.h> needs, and threads.
//
// On a thread of your own, where you may call everything (yusb::watch_queue):
//
//   yusb::watch_queue queue(yusb::device_is_android);
//   while (const auto event = queue.next(std::chrono::minutes(1))) {  // until nothing comes for a minute
//     switch (event->kind) {
//       case yusb::watch_kind::arrival: phones.add(event->device); break;
//       case yusb::watch_kind::removal: phones.drop(event->device); break;
//       case yusb::watch_kind::resync: phones.replace_all(event->devices); break;  // we were too slow
//     }
//   }
//
// At the very moment, under the library's locks (yusb::watcher):
//
//   yusb::watcher watcher([](const YUsbInfoDevice& device, _yusb_device_event event) {
//     std::printf("%c %s\n", event == YUSB_DEVICE_EVENT_APPEND ? '+' : '-', device.location().data());
//   });
//
// What is exact. A watcher tells first of an arrival for each device listed when it is constructed, then of
// every change, in the order in which the list changed. For each location arrivals and removals alternate, an
// arrival first, whatever other threads do: nothing is missed and nothing told twice. A removal carries the
// very record that its arrival carried. Attached devices that the library has not listed yet (it does so
// shortly after yusb::global_initialize) arrive later, as any other.
//
// A device is what is listed at a location. Where a location is listed more than once, as for a moment when
// one device quickly takes another's place, its device is the one listed first; when that leaves the list its
// removal is told, and then the arrival of the next one. Never told of are records without numbers
// (YUsbInfoDevice::empty) or without a location, and removals that took nothing out of the list. A host that
// calls yusb::common_device_remove with an empty record, or with one whose location and instance path are of
// two different listed devices, cannot be followed: the first is taken for a removal of nothing; of the
// second the one with both, or else the first with either, is held to be gone.
//
// Life. Construct a watcher after yusb::global_initialize; stop or destroy it before yusb::global_release:
// afterwards that is undefined. Any number may live at once. They are moved, not copied; a move disturbs no
// event. One object is used on one thread at a time, but for what watch_queue allows.
//
// Threads. Construct, stop and destroy on any thread, but not in what runs under the library's locks: a
// handler of live events, a watcher's callback or filter, the log's sink. There a constructor throws; an end
// cannot be had: the watcher falls silent, without the removals of watch_end::removals, and its memory and
// descriptor are lost. All of them wait for handlers that are running: hold no lock that one of those takes.
//
// Exceptions. Constructors throw std::runtime_error where the library is not initialised or refuses, as
// above, and std::bad_alloc if the watcher itself cannot be allocated. Callbacks and filters must not throw.
// A failed allocation terminates the process while a constructor registers with the library, and when an
// event is kept. stop(), close() and destructors allocate nothing, but for the removals that a queue keeps at
// its end (watch_end::removals).
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

// How a watcher ends: without a word, or with a removal for each device that it told of and that is still
// there.
enum class watch_end { silent, removals };

using watch_callback = std::function<void(const YUsbInfoDevice&, _yusb_device_event)>;

// Calls back for every device that comes or goes, at that moment.
//
// The calls come inside the constructor, on its thread, for what is listed already; then on the thread that
// changes the list, which is the library's monitor thread; and inside the destructor, on its thread, for the
// removals of watch_end::removals. Never two at once. The rules are those of a handler under the library's
// locks (yusb_device_event_interface): copy the record to keep it, do not block, do not throw, call no
// function of the library that takes a lock (it is refused). The filter is asked there too, once a device,
// when it arrives; an empty filter keeps every device. What callback and filter refer to must outlive the
// watcher.
class watcher {
 public:
  // Watches nothing.
  watcher() = default;

  // Throws std::invalid_argument if the callback is empty, and what the top of this file says.
  explicit watcher(watch_callback callback, device_filter filter = {}, watch_end end = watch_end::silent) {
    if (!callback) throw std::invalid_argument("yusb::watcher: the callback is empty");
    auto made = std::make_unique<detail::subscription>(std::move(callback), std::move(filter),
                                                       end == watch_end::removals);
    made->start();
    _subscription.reset(made.release());
  }

  // What the destructor does: no call reaches the callback after it. Does nothing where nothing is watched.
  void stop() noexcept { _subscription.reset(); }

 private:
  std::unique_ptr<detail::subscription, detail::finish_subscription> _subscription;
};

enum class watch_kind {
  arrival,  // `device` came
  removal,  // `device` went
  resync,   // events were dropped; `devices` is what is there now
};

struct watch_event {
  watch_kind kind;
  YUsbInfoDevice device;                // of an arrival or removal, else empty
  std::vector<YUsbInfoDevice> devices;  // of a resync, in order of arrival, else none
};

// Keeps events until the client takes them, on a thread of its own and under no lock of the library. A client
// that is slow, or sleeps, delays neither the library nor another client.
//
// The queue is bounded. When an event finds it full, everything in it is dropped, and the client takes next a
// resync with a snapshot of the moment when it takes it; the events that follow are the changes since then.
// On a resync a client replaces its picture of what is attached by event.devices, and the picture equals the
// list: what only the picture had is gone, what only event.devices has is new (YUsbInfoDevice::operator==
// compares locations), what both have may have gone and come unseen. If more is attached at the start than
// the queue holds, the first event is a resync.
class watch_queue {
 public:
  // Starts watching; what is listed already is queued when this returns. `capacity` is in events, of about
  // 100 bytes each besides the texts; with 0 all comes as resyncs. The filter is asked as a watcher's is.
  // Throws what the top of this file says.
  explicit watch_queue(device_filter filter = {}, std::size_t capacity = 1024,
                       watch_end end = watch_end::silent)
      : _state(std::make_shared<state>(capacity)),
        _watcher([state = _state](const auto& device, auto event) { state->put(device, event); },
                 std::move(filter), end) {}

  // Takes the next event; waits for one as long as `limit`, at most a year; 0 or less does not wait. Empty
  // when the time has passed without an event, or when the queue is closed and empty. Several threads may
  // call it at once: each event goes to one of them. Throws std::bad_alloc if a resync's devices cannot be
  // copied, and then the resync stays; no other event allocates.
  std::optional<watch_event> next(std::chrono::milliseconds limit) {
    limit = std::clamp<std::chrono::milliseconds>(limit, limit.zero(), std::chrono::hours(24 * 365));
    std::unique_lock<std::mutex> lock(_state->mutex);
    _state->changed.wait_for(lock, limit, [this] { return _state->ready(); });
    return _state->take();
  }

  // A descriptor for an event loop: poll, select, epoll and kqueue find it readable while next(0ms) has an
  // event to give, and for good once the queue is closed. It is exact whenever no thread is in a function of
  // the queue. Where the loop reports only a change (EPOLLET, EV_CLEAR), take events until there are none.
  //
  // The queue owns it: it stays the same when the queue is moved, and is closed when the queue is destroyed.
  // Take it out of the loop before that, and do not read, write or close it. A program that is started with
  // exec does not inherit it (elsewhere than on Linux one may that is started during the first call). A
  // forked child must not use it.
  //
  // The first call opens it, an eventfd on Linux and a pipe elsewhere. From then on the first event in an
  // empty queue costs a system call, and so does taking the last one. May be called from any thread. Throws
  // std::system_error if no descriptor can be opened: the queue goes on, and a later call tries again.
  // Since 5.1.0.
  int descriptor() {
    const std::lock_guard<std::mutex> lock(_state->mutex);
    const int descriptor = _state->readable.descriptor();
    _state->readable.set(_state->ready());
    return descriptor;
  }

  // Stops watching, as the destructor of a watcher does, and wakes the threads that wait in next. What is
  // queued, at its end the removals of watch_end::removals, can still be taken. Call it on one thread while
  // others are in next, and destroy the queue when they have left it. A second call does nothing.
  void close() noexcept {
    _watcher.stop();
    const std::lock_guard<std::mutex> lock(_state->mutex);
    _state->closed = true;
    _state->changed.notify_all();
    _state->readable.set(true);
  }

  // True after close. From any thread.
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
    std::mutex mutex;  // guards all that follows but `closed`
    std::condition_variable changed;
    detail::readiness readable;  // set as ready() is
    std::deque<watch_event> events;
    std::vector<YUsbInfoDevice> known_devices;  // what a client would know that had taken every event
    bool dropped = false;                       // and no resync taken since
    std::atomic<bool> closed{false};
  };

  std::shared_ptr<state> _state;
  watcher _watcher;
};

}  // namespace yusb

#endif  // YUSB_WATCHER_H_
