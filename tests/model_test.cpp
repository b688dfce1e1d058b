// Random attaching, subscribing and walking on several threads, compared with the events of one observer.
//
// YUSB_STEPS sets the number of steps, YUSB_SEED repeats a failure.
#include <random>

#include "support.h"

using namespace yusb;

namespace {

constexpr unsigned kClients = 3, kPorts = 6, kStepsOfAThread = 40;

// Devices are identified by a number, a new one for each arrival, since a device that is gone before it is
// read has empty strings. An event is the number of an arrival, or the negative number of a removal.
using numbers = std::vector<long>;

long number_of(const YUsbInfoDevice& record) { return record.vendorID() * 0x10000l + record.productID(); }

// Lets threads wait for each other's steps, but never all at the same time.
class pacer {
 public:
  explicit pacer(unsigned threads) : _threads(threads) {}

  void step() {
    const std::lock_guard<std::mutex> lock(_mutex);
    ++_steps;
    _stepped.notify_all();
  }

  // Waits until the others have made `count` steps, or no other thread can make one.
  void wait_for(unsigned count) {
    std::unique_lock<std::mutex> lock(_mutex);
    ++_steps;
    _stepped.notify_all();
    for (const unsigned long from = _steps; _steps - from < count && _waiting + 1 < _threads;) {
      ++_waiting;
      _stepped.wait(lock);
      --_waiting;
    }
  }

  void leave() {
    const std::lock_guard<std::mutex> lock(_mutex);
    --_threads;
    _stepped.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _stepped;
  unsigned long _steps = 0;  // under _mutex
  unsigned _threads;         // that may make a step; under _mutex
  unsigned _waiting = 0;     // under _mutex
};

// Records live events, on the monitor thread, separately from replays on its owner's thread.
struct observer : yusb_device_event_interface {
  explicit observer(pacer& steps) : pace(steps) {}

  void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
    const std::lock_guard<std::mutex> lock(mutex);
    numbers& kept = std::this_thread::get_id() == owner ? replayed : live;
    kept.push_back(event == YUSB_DEVICE_EVENT_APPEND ? number_of(device) : -number_of(device));
    pace.step();
  }
  std::size_t live_count() {
    const std::lock_guard<std::mutex> lock(mutex);
    return live.size();
  }

  pacer& pace;
  numbers live, replayed;
  const std::thread::id owner = std::this_thread::get_id();
  std::mutex mutex;
};

// A snapshot that a client received, and the length of the observer's log before and after.
struct sight {
  numbers list;
  std::size_t before, after;
};

// The events between opening and closing a context, and those of the replay when it is closed.
struct life {
  numbers live, removed;
  bool exact;  // no event can occur between the two
};

struct model_client {
  observer& reference;
  std::mt19937 random;
  std::vector<sight> sights;
  std::vector<life> lives;

  template <typename Look>
  void see(Look look) {
    sight seen{{}, reference.live_count(), 0};
    seen.list = look();
    seen.after = reference.live_count();
    sights.push_back(std::move(seen));
  }

  void walk() {
    see([] {
      numbers list;
      device_traverse(nullptr, [&](auto& record) { return list.push_back(number_of(record)), true; });
      return list;
    });
  }

  void visit() {
    _yusb_context* own = nullptr;
    context_create(&own);
    observer client(reference.pace);
    see([&] {
      EXPECT_TRUE(context_notify_object_append(own, &client));
      return std::exchange(client.replayed, {});
    });
    reference.pace.wait_for(random() % 8);
    const bool unregisters = random() % 2 == 0;
    see([&] {
      EXPECT_TRUE(unregisters ? context_notify_object_remove(own, &client) : context_release(own));
      for (long& each : client.replayed) each = -each;
      return client.replayed;
    });
    EXPECT_TRUE(!unregisters || context_release(own));
    lives.push_back({client.live, client.replayed, !unregisters});
  }
};

// Returns whether the list was equal to it at some time while the observer's log grew from `before` to
// `after`.
bool was_list(const sight& seen, const numbers& log) {
  numbers list;
  for (std::size_t i = 0;; ++i) {
    if (i >= seen.before && list == seen.list) return true;
    if (i >= seen.after) return false;
    if (log[i] > 0) list.push_back(log[i]);
    if (log[i] <= 0) list.erase(std::remove(list.begin(), list.end(), -log[i]), list.end());
  }
}

}  // namespace

struct Model : Library {};

TEST_F(Model, AgreesWhateverHappensAtOnce) {
  const unsigned long steps = env_or("YUSB_STEPS", 50000);
  unsigned long seed = env_or("YUSB_SEED", std::random_device()()), arrivals = 0;
  for (unsigned long done = 0; done < steps && !HasFailure(); done += (kClients + 1) * kStepsOfAThread) {
    SCOPED_TRACE("YUSB_SEED=" + std::to_string(seed));
    pacer pace(kClients + 1);
    observer reference(pace);
    ASSERT_TRUE(context_notify_object_append(context, &reference));
    std::vector<model_client> clients(kClients, {reference, {}, {}, {}});
    std::vector<std::thread> threads;
    std::mt19937 random(seed * 10);
    for (model_client& each : clients) {
      each.random.seed(++seed * 10);
      threads.emplace_back([&each, &pace] {
        for (unsigned step = 0; step < kStepsOfAThread; ++step)
          each.random() % 2 == 0 ? each.walk() : each.visit();
        pace.leave();
      });
    }
    std::vector<int> plugged(kPorts);
    for (unsigned step = 0; step < kStepsOfAThread; ++step) {
      const unsigned port = random() % kPorts;
      const bool left = bus.unplug(std::exchange(plugged[port], 0));
      if (!left || random() % 4 == 0) {  // or replugs it
        ++arrivals;
        plugged[port] =
            bus.plug(make_device(static_cast<std::uint16_t>(1 + arrivals / 0xFFFF),
                                 static_cast<std::uint16_t>(1 + arrivals % 0xFFFF), (port + 1) << 20));
      }
      pace.wait_for(random() % 4);
    }
    pace.leave();
    for (const int id : plugged) bus.unplug(id);
    for (std::thread& each : threads) each.join();
    settle();
    ASSERT_TRUE(context_notify_object_remove(context, &reference));

    const numbers& log = reference.live;
    EXPECT_TRUE(was_list({{}, log.size(), log.size()}, log));
    EXPECT_EQ(listed(), "");
    for (const model_client& each : clients) {
      for (const sight& seen : each.sights)
        EXPECT_TRUE(was_list(seen, log)) << testing::PrintToString(seen.list) << testing::PrintToString(log);
      // Live events are a contiguous part of the observer's.
      for (const auto& [live, removed, exact] : each.lives) {
        const auto start = std::search(log.begin(), log.end(), live.begin(), live.end());
        EXPECT_TRUE(live.empty() || start != log.end());
        const std::size_t end = static_cast<std::size_t>(start - log.begin()) + live.size();
        EXPECT_TRUE(live.empty() || !exact || was_list({removed, end, end}, log));
      }
    }
  }
}
