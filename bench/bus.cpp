// The Linux bus compared with the baseline, libudev and libusb, on one tree.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "benchmarks.h"
#include "watchers.h"

namespace bench {

namespace {

constexpr int device_count = 101;  // a root hub and 100 devices behind it

std::unique_ptr<watcher> start_and_wait(const contender& program, listener& to, int devices) {
  to.expect(devices);
  auto started = program.start(to);
  to.wait();
  return started;
}

// Counters of all threads except this one: threads, sleeping threads, and voluntary waits.
struct others {
  long threads = 0;
  long asleep = 0;
  long waits = 0;
};

others other_threads() {
  others found;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(getpid())) continue;
    ++found.threads;
    std::ifstream status(task.path() / "status");
    for (std::string word, value; status >> word;) {
      if (word == "State:" && status >> value && value == "S") ++found.asleep;
      if (word == "voluntary_ctxt_switches:" && status >> value) found.waits += std::stol(value);
    }
  }
  return found;
}

void wait_until_others_sleep() {
  for (others now = other_threads(); now.asleep < now.threads;) now = other_threads();
}

// ---- Times ----

void start(benchmark::State& state, const contender& program) {
  const int devices = static_cast<int>(state.range(0));
  attach_until(devices);
  quantiles times;
  for (auto _ : state) {
    listener to;
    const auto begin = clock::now();
    const auto running = start_and_wait(program, to, devices);
    times.add(state, to.last - begin);
  }
  times.report(state);
}

void stop(benchmark::State& state, const contender& program) {
  attach_until(device_count);
  quantiles times;
  for (auto _ : state) {
    listener to;
    auto running = start_and_wait(program, to, device_count);
    wait_until_others_sleep();
    const auto begin = clock::now();
    running.reset();
    times.add(state, clock::now() - begin);
  }
  times.report(state);
}

clock::duration change(const contender& program, listener& to, bool arrival) {
  if (arrival) show(device_count);
  if (!arrival) hide(device_count);
  to.expect(1);
  const auto sent = announce(program.hears, device_count, arrival);
  to.wait();
  return to.last - sent;
}

void changes(benchmark::State& state, const contender& program, bool arrival) {
  attach_until(device_count + 1);
  attach_until(device_count);
  listener to;
  const auto running = start_and_wait(program, to, device_count);
  quantiles times;
  for (auto _ : state) {
    const auto arrived = change(program, to, true);
    const auto removed = change(program, to, false);
    times.add(state, arrival ? arrived : removed);
  }
  times.report(state);
}

// ---- Counts ----

// From the start to the last delivery. The cost of a device is the difference made by 100 more devices.
void count_start(const contender& program, int devices) {
  attach_until(devices);
  const std::string name = std::string("start/") + program.name + "/" + std::to_string(devices);
  for (const bool warm : {false, true}) {
    listener to;
    const long before = heap_now().bytes;
    if (warm) begin_count();
    auto running = start_and_wait(program, to, devices);
    if (!warm) continue;
    end_count(name, 1);
    wait_until_others_sleep();
    print("held " + name, heap_now().bytes - before);
    running.reset();
    print("left " + name, heap_now().bytes - before);
  }
}

}  // namespace

void register_bus() {
  for (const contender& program : contenders) {
    const auto add = [&program](const char* what, auto function, int iterations) {
      return benchmark::RegisterBenchmark((std::string(what) + "/" + program.name).c_str(),
                                          [&program, function](auto& state) { function(state, program); })
          ->UseManualTime()
          ->Unit(benchmark::kMicrosecond)
          ->Iterations(iterations);
    };
    for (const int devices : {1, device_count}) add("start", start, 100)->Arg(devices);
    for (const int devices : {11, 1001, 5001}) add("start", start, 3)->Arg(devices);
    add("stop", stop, 100);
    for (const bool arrival : {true, false}) {
      add(
          arrival ? "arrival" : "removal", [arrival](auto& at, auto& of) { changes(at, of, arrival); }, 200)
          ->Repetitions(25);  // in turns, because the machine's speed changes from one second to the next
    }
  }
}

void count_bus() {
  for (const contender& program : contenders) {
    for (const int devices : {1, device_count}) count_start(program, devices);
  }
}

void count_idle() {
  attach_until(device_count);
  listener to;
  const auto running = start_and_wait(library, to, device_count);
  wait_until_others_sleep();
  const others before = other_threads();
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const others after = other_threads();
  print("threads idle", after.threads);
  print("wake-ups idle", after.waits - before.waits);
}

}  // namespace bench
