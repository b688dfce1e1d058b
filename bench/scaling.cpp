// Scaling: floods and bursts of events, clients that read during a storm, and the size at which the receive
// buffer overflows.
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include <YorvanCore/YLog.h>
#include <yusb.h>
#include <yusb_simulator.h>

#include "benchmarks.h"
#include "linux/uevent_socket.h"
#include "watchers.h"

namespace bench {

namespace {

// End to end: a simulated bus, the run loop, the backend, the list, the log, a handler.
void flood(benchmark::State& state) {
  constexpr int arrivals = 100000;
  yusb::simulated_device device;
  device.vendor = 0x18D1;
  device.product = 0x4EE7;
  device.location = 0x01100000;
  device.manufacturer = "Northwind Instruments Ltd.";
  device.product_name = "Precision Logic Analyzer";
  device.serial_number = "NW-2024-00000042-A7F3";
  for (auto _ : state) {
    yusb::simulator bus;
    listener to;
    const auto running = library.start(to);
    bus.settle();
    to.expect(2 * arrivals);
    for (int i = 0; i < arrivals; ++i) bus.unplug(bus.plug(device));
    to.wait();
  }
  state.SetItemsProcessed(2 * arrivals * state.iterations());
}

// Clients that walk a list of 100 devices continuously, while one device is attached and detached.
void storm(benchmark::State& state) {
  yusb::simulator bus;
  yusb::global_initialize();
  YUsbInfoDevice record;
  for (int i = 0; i < 100; ++i) {
    record.setLocation(YString::format("0x%X", 0x01000000 + i));
    yusb::common_device_append(record);
  }
  record.setLocation("0x2000000");
  std::atomic<bool> ending{false};
  std::atomic<long> walks{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < state.range(0); ++i) {
    readers.emplace_back([&] {
      while (!ending) {
        yusb::device_traverse(nullptr, [](const YUsbInfoDevice&) { return true; });
        ++walks;
      }
    });
  }
  while (walks < 10 * state.range(0)) std::this_thread::yield();
  walks = 0;
  for (auto _ : state) {
    yusb::common_device_append(record);
    yusb::common_device_remove_from_location(record.location());
  }
  state.SetItemsProcessed(2 * state.iterations());
  state.counters["walks"] = benchmark::Counter(static_cast<double>(walks), benchmark::Counter::kIsRate);
  ending = true;
  for (std::thread& reader : readers) reader.join();
  yusb::global_release();
}

// Devices that are announced as fast as possible.
void burst(benchmark::State& state) {
  const int devices = static_cast<int>(state.range(0));
  static std::atomic<int> losses;
  losses = 0;
  YLog::setSink([](EYORVAN_LOG_LEVEL level, const char*, std::size_t, void*) { losses += level > 1; },
                nullptr);
  quantiles times;
  for (auto _ : state) {
    attach_until(1);
    listener to;
    to.expect(1);
    const auto running = library.start(to);
    to.wait();
    attach_until(devices + 1);
    to.expect(devices);
    const auto begin = clock::now();
    for (int i = 1; i <= devices; ++i) announce(announcer::kernel, i, true);
    to.wait();
    times.add(state, to.last - begin);
  }
  YLog::setSink([](EYORVAN_LOG_LEVEL, const char*, std::size_t, void*) {}, nullptr);
  times.report(state);
  state.counters["losses"] = losses.load();
}

// The number of uevents that the library's socket holds while no thread reads it.
int queue_length(bool privileged) {
  int ready[2];
  int sent[2];
  if (pipe(ready) != 0 || pipe(sent) != 0) return -1;
  char byte = 0;
  int length = 0;
  const pid_t reader = fork();
  if (reader == 0) {
    using socket = yusb::port::uevent_socket;
    constexpr uid_t nobody = 65534;
    if (!privileged && setresuid(nobody, nobody, nobody) != 0) _exit(1);
    socket listening;
    if (!listening.open() || write(ready[1], &byte, 1) != 1 || read(sent[0], &byte, 1) != 1) _exit(1);
    yusb::port::uevent event;
    for (auto what = listening.receive(&event); what != socket::received::nothing;
         what = listening.receive(&event)) {
      length += what == socket::received::device;
    }
    _exit(write(ready[1], &length, sizeof length) == sizeof length ? 0 : 1);
  }
  close(ready[1]);
  if (read(ready[0], &byte, 1) == 1) {
    for (int i = 0; i < 40000; ++i) announce(announcer::kernel, 1, true);
    if (write(sent[1], &byte, 1) != 1 || read(ready[0], &length, sizeof length) != sizeof length) length = -1;
  }
  waitpid(reader, nullptr, 0);
  for (const int end : {ready[0], sent[0], sent[1]}) close(end);
  return length;
}

void queue(benchmark::State& state) {
  for (auto _ : state) state.counters["length"] = queue_length(state.range(0) != 0);
}

}  // namespace

void register_scaling() {
  benchmark::RegisterBenchmark("flood", flood)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("storm", storm)->RangeMultiplier(4)->Range(1, 64)->UseRealTime()->MinTime(0.3);
  benchmark::RegisterBenchmark("burst", burst)
      ->Arg(5000)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  if (on_umockdev()) return;  // umockdev has no receive buffer
  benchmark::RegisterBenchmark("queue", queue)->Arg(1)->Arg(0)->Iterations(1);
}

}  // namespace bench
