// Four programs that watch the bus: each lists what is attached and hears what comes and goes, on a thread of
// its own, and keeps what it learns of each device.
#ifndef YUSB_BENCH_WATCHING_H_
#define YUSB_BENCH_WATCHING_H_

#include <semaphore.h>

#include <atomic>
#include <memory>

#include "host.h"
#include "measure.h"

namespace bench {

// Counts what a watching program hears; waits without using the processor.
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
struct watching {
  virtual ~watching() = default;
};

struct subject {
  const char* name;
  std::unique_ptr<watching> (*start)(listener&);
  announcer hears;
};

// The library; the floor: what a program comes to that has no library and does only this; libudev and libusb.
// libusb's does not learn a device's texts, for which it would have to ask the device.
extern const subject subjects[4];
extern const subject& library;
extern const subject& plain;

}  // namespace bench

#endif  // YUSB_BENCH_WATCHING_H_
