// An event loop: descriptors, timers, and work on a second thread.
#ifndef YUSB_FLEET_LOOP_H_
#define YUSB_FLEET_LOOP_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace yusb::fleet {

// Unless noted, functions are called on the thread that calls run(), and call back on it.
class loop {
 public:
  using clock = std::chrono::steady_clock;
  using task = std::function<void()>;
  using ready = std::function<void(std::uint32_t events)>;
  using timer = std::uint64_t;  // 0 is none

  // Throws std::system_error.
  loop();
  // Waits for background work in progress.
  ~loop();
  loop(const loop&) = delete;
  loop& operator=(const loop&) = delete;

  // Calls `call` while `descriptor` has any of the epoll `events`. Replaces an earlier watch of the
  // descriptor. Throws std::system_error.
  void watch(int descriptor, std::uint32_t events, ready call);
  void set_events(int descriptor, std::uint32_t events);
  void unwatch(int descriptor);

  // Calls `call` once, after `delay`. cancel() does nothing if the timer has been called or cancelled.
  timer after(std::chrono::milliseconds delay, task call);
  void cancel(timer id);

  // Calls `call` as soon as possible. May be called from any thread.
  void post(task call);

  // Runs `work` on the background thread, after earlier work, and then calls `done` on the loop's thread.
  void background(task work, task done);

  // Returns after stop().
  void run();
  void stop() { _stopped = true; }

 private:
  int wait_limit() const;
  void run_timers();
  void run_posted();
  void work();

  const int _epoll;
  const int _wake;  // an eventfd
  bool _stopped = false;
  std::unordered_map<int, std::shared_ptr<ready>> _watched;
  std::map<std::pair<clock::time_point, timer>, task> _timers;
  std::unordered_map<timer, clock::time_point> _times;
  timer _last_timer = 0;

  std::mutex _mutex;  // guards all that follows but _worker
  std::condition_variable _changed;
  std::vector<task> _posted;
  std::deque<std::pair<task, task>> _work;
  bool _ending = false;
  std::thread _worker;  // started by the first background()
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_LOOP_H_
