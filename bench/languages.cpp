// What a program in C++ and one in C pay to take an event from a queue. languages.py measures Python.
#include <YorvanCore/YLog.h>
#include <yusb_c.h>
#include <yusb_simulator.h>
#include <yusb_watcher.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "benchmarks.h"
#include "measure.h"

namespace bench {

namespace {

constexpr int devices = 1000;

// The library with devices that it lists to each new queue.
class listed_devices {
 public:
  listed_devices() {
    YLog::setThreshold(EYORVAN_LOG_LEVEL_FATAL);
    for (int i = 0; i < devices; ++i) {
      yusb::simulated_device device;
      device.vendor = 0x1234;
      device.product = 0x5678;
      device.location = 0x01000000u + static_cast<unsigned>(i);
      device.manufacturer = "Northwind Instruments Ltd.";
      device.product_name = "Precision Logic Analyzer";
      device.serial_number = "NW-2024-" + std::to_string(i) + "-A7F3";
      _bus.plug(device);
    }
    yusb::global_initialize();
    _bus.settle();
  }
  ~listed_devices() {
    yusb::global_release();
    YLog::setThreshold(EYORVAN_LOG_LEVEL_TRACE);
  }

 private:
  yusb::simulator _bus;
};

// Times `take`, which takes one event of the queue that `open` returns.
template <typename Open, typename Take>
void measure(benchmark::State& state, Open open, Take take) {
  const listed_devices listed;
  while (state.KeepRunningBatch(devices)) {
    state.PauseTiming();
    auto queue = open();
    state.ResumeTiming();
    for (int i = 0; i < devices; ++i) take(queue);
    state.PauseTiming();
    queue = {};
    state.ResumeTiming();
  }
}

struct free_queue {
  void operator()(yusb_queue* queue) const { yusb_queue_free(queue); }
};
using c_queue = std::unique_ptr<yusb_queue, free_queue>;

}  // namespace

void register_languages() {
  benchmark::RegisterBenchmark("next/C++", [](benchmark::State& state) {
    measure(
        state, [] { return std::make_unique<yusb::watch_queue>(); },
        [](auto& queue) { benchmark::DoNotOptimize(queue->next(std::chrono::milliseconds(0))); });
  });
  benchmark::RegisterBenchmark("next/C", [](benchmark::State& state) {
    measure(
        state,
        [] {
          yusb_queue* queue = nullptr;
          yusb_start();
          if (yusb_queue_open(nullptr, &queue) != YUSB_OK) std::abort();
          yusb_stop();
          return c_queue(queue);
        },
        [](c_queue& queue) {
          yusb_event* event = nullptr;
          yusb_queue_next(queue.get(), 0, &event);
          yusb_event_free(event);
        });
  });
}

}  // namespace bench
