// Watchers, by callback and by queue, keep their guarantees whatever happens concurrently.
#include <dlfcn.h>
#include <poll.h>
#include <yusb_watcher.h>

#include <future>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "support.h"

extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

using namespace yusb;
using namespace std::chrono_literals;

// Called once before this thread waits for an event, with the queue's mutex held.
thread_local std::function<void()> _before_wait;

extern "C" int pthread_cond_clockwait(pthread_cond_t* changed, pthread_mutex_t* mutex, clockid_t clock,
                                      const timespec* limit) {
  if (_before_wait) std::exchange(_before_wait, nullptr)();
  static const auto next =
      reinterpret_cast<decltype(&pthread_cond_clockwait)>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
  return next(changed, mutex, clock, limit);
}

struct Watcher : Library {
  Watcher() { YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR); }

  const watch_callback hear = [this](auto& device, auto event) { client.on_device_event(device, event); };
};

// ---- Threads change the list and renew their watchers at random; everything is compared regularly ----

// A client's list: the product ID at each location.
using known_devices = std::map<std::string, unsigned short>;

void apply(known_devices& known, const YUsbInfoDevice& device, bool arrival) {
  const std::string location = device.location().data();
  EXPECT_TRUE(device.exist() && !location.empty());
  const auto [at, absent] = known.emplace(location, device.productID());
  EXPECT_TRUE(arrival ? absent : !absent && at->second == device.productID()) << location;
  if (!arrival) known.erase(at);
}

struct actor {
  std::mt19937 random;
  std::vector<int> plugged;
  device_filter filter;
  watch_end end = watch_end::silent;
  known_devices live, queued;
  yusb::watcher watcher;
  std::optional<watch_queue> queue;
  pollfd readable = {-1, POLLIN, 0};

  void renew() {
    stop();
    filter = [odd = random() % 3](auto& device) { return odd == 2 || device.productID() % 2 == odd; };
    end = random() % 2 == 0 ? watch_end::silent : watch_end::removals;
    queue.emplace(filter, random() % 32, end);
    readable.fd = queue->descriptor();
    const auto hear = [&](auto& device, auto event) {
      apply(live, device, event == YUSB_DEVICE_EVENT_APPEND);
    };
    watcher = yusb::watcher(hear, filter, end);
  }

  // While others change the list, an event may arrive between the two calls.
  void drain(bool others_rest = false) {
    for (;;) {
      const bool announced = poll(&readable, 1, 0) == 1;
      const auto event = queue->next(0ms);
      const bool as_announced = announced == event.has_value();
      EXPECT_TRUE(as_announced || (announced && queue->closed()) || (!announced && !others_rest));
      if (!event) break;
      if (event->kind == watch_kind::resync) queued = {};
      for (const YUsbInfoDevice& device : event->devices) apply(queued, device, true);
      if (event->kind != watch_kind::resync) apply(queued, event->device, event->kind == watch_kind::arrival);
    }
  }

  void stop() {
    watcher.stop();
    if (queue) queue->close(), drain();
    EXPECT_TRUE(end == watch_end::silent || (live.empty() && queued.empty()));
    live = queued = {};
  }

  void compare() {
    drain(true);
    std::set<std::string> locations;
    known_devices expected;
    device_traverse(nullptr, [&](const YUsbInfoDevice& listed) {
      const std::string location = listed.location().data();
      const bool is_device = listed.exist() && !location.empty() && locations.insert(location).second;
      if (is_device && filter(listed)) expected[location] = listed.productID();
      return true;
    });
    EXPECT_EQ(live, expected);
    EXPECT_EQ(queued, expected);
  }

  void change_list(simulator& bus) {
    const unsigned place = random() % 16;
    const bool has_location = place != 0, has_own_path = place % 4 == 0;
    const auto product = static_cast<unsigned short>(1 + random() % 0xFFFF);
    YUsbInfoDevice record;
    if (has_location) record.setLocation(YString::format("0x%X", place));
    record.setInstancePath(has_own_path ? YString::format("path %u", place) : record.location());
    if (random() % 8 != 0) record.setProductID(product);
    const unsigned choice = random() % 10;
    if (choice < 2) return common_device_append(record);
    if (choice < 6) return common_device_remove_from_location(record.location());
    if (choice < 7) return common_device_remove_from_instance_path(record.instancePath());
    if (choice < 8) return common_device_remove(record);
    if (choice < 9 && !has_own_path) {
      plugged.push_back(bus.plug(make_device(1, product, place)));
    } else if (!plugged.empty()) {
      bus.unplug(plugged.back());
      plugged.pop_back();
    }
  }
};

// YUSB_STEPS and YUSB_SEED set the run. A seed repeats the threads' steps, not their interleaving.
TEST_F(Watcher, KnowsTheListWhateverOtherThreadsDo) {
  constexpr unsigned rounds = 100;
  actor actors[4];
  const auto seed = static_cast<unsigned>(env_or("YUSB_SEED", std::random_device()()));
  const unsigned long steps = env_or("YUSB_STEPS", 100'000) / (rounds * std::size(actors));
  std::printf("YUSB_SEED=%u\n", seed);
  for (actor& each : actors) each.random.seed(seed + static_cast<unsigned>(&each - actors));
  for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
    const unsigned renewals = round % 2 == 0 ? 1 : 8;  // per 16 steps
    std::vector<std::thread> threads;
    for (actor& each : actors) {
      threads.emplace_back([&] {
        each.renew();
        for (unsigned long step = 0; step < steps; ++step) {
          const unsigned choice = each.random() % 16;
          if (choice < renewals)
            each.renew();
          else if (choice == 15)
            each.drain();
          else
            each.change_list(bus);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(bus.settle());
    for (actor& each : actors) each.compare();
  }
  for (actor& each : actors) each.stop();
}

TEST_F(Watcher, IgnoresARemovalThatFoundNothing) {
  watcher watcher(hear);
  common_device_append(make_record(1, 1, "a", ""));
  common_device_remove_from_location("unknown");
  EXPECT_EQ(client.take(), "+a");
}

TEST_F(Watcher, IsRefusedWhereItCannotWork) {
  EXPECT_THROW(watcher(nullptr), std::invalid_argument);
  if (__lsan_disable) __lsan_disable();  // a watcher that is destroyed in a handler is leaked
  std::optional<watcher> doomed(std::in_place, hear, nullptr, watch_end::removals);
  if (__lsan_enable) __lsan_enable();
  watcher handler([&](auto&, auto) {
    EXPECT_THROW(watch_queue(), std::runtime_error);
    doomed.reset();
  });
  append({"a"});
  client.take();  // the arrival, if the queue received it before the handler ran
  common_device_remove_from_location("a");
  EXPECT_EQ(client.take(), "");
  handler.stop();
  global_release();
  EXPECT_THROW(watch_queue(), std::runtime_error);
}

// Starts a thread that waits for the next event, or is about to wait with the queue's mutex held, when this
// returns.
std::future<std::optional<watch_event>> taker(
    watch_queue& queue, std::function<void()> before = [] {}) {
  const auto waiting = std::make_shared<gate>();
  auto taken = std::async(std::launch::async, [=, &queue] {
    _before_wait = [=] { before(), waiting->open(); };
    return queue.next(std::chrono::milliseconds::max());
  });
  waiting->wait();
  return taken;
}

TEST_F(Watcher, AnEventAndACloseWakeThreadsThatWait) {
  watch_queue queue({}, 4, watch_end::removals), full({}, 0);
  auto arrival = taker(queue), overflow = taker(full);
  append({"1"});
  EXPECT_EQ(arrival.get().value().kind, watch_kind::arrival);
  EXPECT_EQ(overflow.wait_for(kPatience), std::future_status::ready);
  full.close();
  auto first = taker(queue), second = taker(queue), third = taker(queue);
  queue.close();
  int given = 0;
  for (auto* const each : {&first, &second, &third}) given += each->get().has_value();
  EXPECT_EQ(given, 1) << "the removal, to one of them";
  EXPECT_TRUE(queue.closed());
  EXPECT_FALSE(queue.next(std::chrono::milliseconds::max()));
}

TEST_F(Watcher, ACloseIsNotMissedByAThreadThatIsAboutToWait) {
  watch_queue queue;
  std::future<void> closing;
  auto waiting = taker(queue, [&] {
    closing = std::async(std::launch::async, [&] { queue.close(); });
    EXPECT_EQ(closing.wait_for(50ms), std::future_status::timeout) << "it must wait for the mutex";
  });
  if (HasFailure()) queue.close();  // otherwise it waits forever
  EXPECT_FALSE(waiting.get());
}
