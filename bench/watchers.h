// Four programs that watch the bus. Each lists the attached devices, receives arrivals and removals on its
// own thread, and stores the properties of each device.
#ifndef YUSB_BENCH_WATCHERS_H_
#define YUSB_BENCH_WATCHERS_H_

#include <semaphore.h>

#include <atomic>
#include <memory>

#include "host.h"
#include "measure.h"

namespace bench {

// Counts the events that a watcher receives, and waits for them without polling.
class listener {
 public:
  listener() { sem_init(&_done, 0, 0); }
  ~listener() { sem_destroy(&_done); }

  void expect(int events) { _expected = events; }
  void heard() {
    last = clock::now();
    if (--_expected == 0) sem_post(&_done);
  }
  // Terminates the process if the events do not arrive.
  void wait();

  clock::time_point last;  // the time of the last event; valid after wait()

 private:
  std::atomic<int> _expected{0};
  sem_t _done;
};

// Starts when constructed and ends when destroyed. The listener receives one event per device.
struct watcher {
  virtual ~watcher() = default;
};

struct contender {
  const char* name;
  std::unique_ptr<watcher> (*start)(listener&);
  announcer hears;
};

// With the library; the baseline, which does only this without a library; with libudev; with libusb. The last
// one does not read strings, since libusb would have to request them from the device.
extern const contender contenders[4];
extern const contender& library;
extern const contender& baseline;

}  // namespace bench

#endif  // YUSB_BENCH_WATCHERS_H_
