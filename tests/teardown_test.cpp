// Releases while everything is in use, and restarts: no handler is called late, and nothing is leaked.
//
// YUSB_CYCLES sets the number of starts.
#include <malloc.h>
#include <pthread.h>

#include <cstdint>
#include <memory>

#include "support.h"

using namespace yusb;
using namespace std::chrono_literals;

struct Teardown : Library {};

struct ending_client : yusb_device_event_interface {
  std::atomic<int> heard{0};
  gate more_than_a_replay;
  std::atomic<bool> ended{false};
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override { hear(); }
  void hear() {
    for (volatile int i = 0; i < 2000;) i = i + 1;  // time in which an end that does not wait would finish
    EXPECT_FALSE(ended);
    if (++heard > 8) more_than_a_replay.open();
  }
};

TEST_F(Teardown, EndsClientsAndSinksInAStormOfEventsFromEightThreads) {
  const auto no_sink = [](auto, auto*, auto, void*) {};
  const auto sink = [](auto, auto*, auto, void* client) { static_cast<ending_client*>(client)->hear(); };
  YLog::setSink(no_sink, nullptr);
  std::mutex mutex;
  std::condition_variable changed;
  int gust = 0;  // the latest that has begun; negative when the storm is over; under mutex
  const auto begin = [&](int number) {
    const std::lock_guard<std::mutex> lock(mutex);
    gust = number;
    changed.notify_all();
  };
  std::vector<std::thread> storm;
  for (char key = '1'; key <= '8'; ++key) {
    storm.emplace_back([&, record = make_record(1, 1, YString(&key, 1))] {
      for (int last = 0;;) {
        {
          std::unique_lock<std::mutex> lock(mutex);
          changed.wait(lock, [&] { return gust != last; });
          last = gust;
        }
        if (last < 0) return;
        common_device_append(record);
        EXPECT_TRUE(device_is_exist(nullptr, record));
        common_device_remove_from_location(record.location());
      }
    });
  }
  std::vector<std::unique_ptr<ending_client>> kept;  // every second one; the others are freed immediately
  for (int i = 0; i < 2400; ++i) {
    _yusb_context* own = nullptr;
    context_create(&own);
    auto client = std::make_unique<ending_client>();
    EXPECT_TRUE(context_notify_object_append(own, client.get()));
    begin(2 * i + 1);
    client->more_than_a_replay.wait();
    EXPECT_TRUE(i % 6 >= 2 || context_notify_object_remove(own, client.get()));
    const bool is_sink = i % 6 == 2 || i % 6 == 3;
    if (is_sink) YLog::setSink(sink, client.get()), begin(2 * i + 2);
    EXPECT_TRUE(context_release(own));
    if (is_sink) YLog::setSink(no_sink, nullptr);
    client->ended = true;
    if (i % 2 == 0) kept.push_back(std::move(client));
  }
  begin(-1);
  for (std::thread& each : storm) each.join();
  EXPECT_EQ(listed(), "");
}

TEST_F(Teardown, WaitsForTheHandlerThatRuns) {
  gate entered, releasing;
  std::atomic<bool> left{false};
  client.then = [&, last = 0, arrivals = 0](auto&, auto event) mutable {
    if (event == YUSB_DEVICE_EVENT_REMOVE) return;
    bus.unplug(last);
    last = bus.plug(make_device(1, 2, 3));  // so that there is always another one
    if (++arrivals != 10) return;
    entered.open();
    releasing.wait();
    std::this_thread::sleep_for(20ms);  // the delay under test: a release that does not wait ends before it
    left = true;
  };
  listen();
  bus.plug(make_device(1, 2, 3));
  entered.wait();
  releasing.open();
  global_release();
  EXPECT_TRUE(left);
}

TEST(TeardownCycles, BeginAgainOnceAThreadCanBeMade) {
  log_capture log;
  const simulator bus;
  pthread_attr_t usual, impossible;
  pthread_getattr_default_np(&usual);
  pthread_attr_init(&impossible);
  pthread_attr_setstacksize(&impossible, SIZE_MAX / 8 * 7);  // larger than the free address space
  pthread_setattr_default_np(&impossible);
  global_initialize();
  pthread_setattr_default_np(&usual);
  EXPECT_EQ(log.take('4').size(), 1u);
  EXPECT_FALSE(bus_settle(0ms));
  global_initialize();
  EXPECT_TRUE(bus_settle(std::chrono::milliseconds::max()));
  global_release();
}

TEST(TeardownCycles, LeaveThreadsDescriptorsAndMemoryWhereTheyWere) {
  mallopt(M_ARENA_MAX, 1);  // so that mallinfo2 sees every thread's blocks
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);
  simulator bus;
  bus.plug(make_device(1, 2, 3));
  const auto run = [&bus](unsigned long cycles) {
    for (unsigned long i = 0; i < cycles; ++i) {
      global_initialize();
      recorder client;
      _yusb_context* context = nullptr;  // left open
      context_create(&context);
      context_notify_object_append(context, &client);
      EXPECT_TRUE(i % 2 == 0 || bus.settle());
      global_release();
    }
  };
  run(50);  // creates the objects that are created only once
  const auto descriptors = entries("/proc/self/fd"), threads = entries("/proc/self/task");
  const std::size_t memory = mallinfo2().uordblks;
  const unsigned long cycles = env_or("YUSB_CYCLES", 1000);
  run(cycles);
  // The entry of a detached thread, its stack and its cache disappear shortly after its last step.
  EXPECT_TRUE(comes_true([&] { return entries("/proc/self/task") <= threads; }));
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  EXPECT_LT(mallinfo2().uordblks, memory + 16 * cycles);  // less than the smallest block per cycle
  EXPECT_EQ(simulator::leaks(), strings());
}
