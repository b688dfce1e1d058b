// Four programs that watch the bus: each lists what is attached and hears what comes and goes, on a thread of
// its own, and keeps what it learns of each device.
#ifndef YUSB_BENCH_WATCHERS_H_
#define YUSB_BENCH_WATCHERS_H_

#include <semaphore.h>

#include <atomic>
#include <memory>

#include "host.h"
#include "measure.h"

namespace bench {

// Counts the events that a watcher receives; waits without using the processor.
class listener {
 public:
  listener() { sem_init(&_done, 0, 0); }
  ~listener() { sem_destroy(&_done); }

  void expect(int events) { _expected = events; }
  void heard() {
    last = clock::now();
    if (--_expected == 0) sem_post(&_done);
  }
  // Ends the process if the events do not come.
  void wait();

  clock::time_point last;  // of the last event; after wait()

 private:
  std::atomic<int> _expected{0};
  sem_t _done;
};

// Starts when made and ends when destroyed. Every device is one event at the listener.
struct watcher {
  virtual ~watcher() = default;
};

struct contender {
  const char* name;
  std::unique_ptr<watcher> (*start)(listener&);
  announcer hears;
};

// The library; the baseline, a program that does only this and uses no library; libudev and libusb.
// libusb's does not learn a device's texts, for which it would have to ask the device.
extern const contender contenders[4];
extern const contender& library;
extern const contender& baseline;

}  // namespace bench

#endif  // YUSB_BENCH_WATCHERS_H_
