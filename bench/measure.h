// Counts the cost of a piece of work: instructions, system calls, allocations.
#ifndef YUSB_BENCH_MEASURE_H_
#define YUSB_BENCH_MEASURE_H_

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using clock = std::chrono::steady_clock;

struct heap {
  long allocations;  // since the process started
  long bytes;        // in use
};
heap heap_now();  // 0 unless heap.cpp is preloaded

// Prints a result of the counted pass as "NAME VALUE", which report.py parses.
void print(const std::string& name, long value);

// Mark the beginning and the end of a count for callgrind, strace and the heap.
void begin_count();
void end_count(const std::string& name, int times);

// Counts `times` runs of `work`, after one run to warm up.
template <typename Work>
void count(const std::string& name, int times, Work work) {
  work();
  begin_count();
  for (int i = 0; i < times; ++i) work();
  end_count(name, times);
}

// Collects times that a loop measures itself, and reports them and their quantiles, in microseconds, to the
// benchmark.
class quantiles {
 public:
  void add(benchmark::State& state, clock::duration took) {
    const double seconds = std::chrono::duration<double>(took).count();
    state.SetIterationTime(seconds);
    _seconds.push_back(seconds);
  }
  void report(benchmark::State& state) {
    std::sort(_seconds.begin(), _seconds.end());
    const auto at = [this](double part) {
      return _seconds[static_cast<std::size_t>(part * static_cast<double>(_seconds.size() - 1))] * 1e6;
    };
    state.counters["p50"] = at(0.50);
    state.counters["p99"] = at(0.99);
  }

 private:
  std::vector<double> _seconds;
};

}  // namespace bench

#endif  // YUSB_BENCH_MEASURE_H_
