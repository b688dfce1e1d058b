// Random plugging, subscribing and walking on several threads, checked against what a witness saw.
//
// YUSB_STEPS sets the number of steps, YUSB_SEED repeats a failure.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "support.h"

namespace {

constexpr int kPorts = 6;
constexpr int kClients = 3;
constexpr unsigned kStepsOfAThread = 40;

struct event {
  bool arrival;
  unsigned long device;  // a new one for each arrival
  bool operator==(const event& other) const { return arrival == other.arrival && device == other.device; }
};
using events = std::vector<event>;
using devices = std::vector<unsigned long>;

// By its numbers: the texts of a device that is gone before it is read are empty.
unsigned long identity(const YUsbInfoDevice& record) {
  return record.vendorID() * 0x10000ul + record.productID();
}

// Keeps what comes on the monitor thread apart from what is replayed on its owner's.
class observer : public yusb_device_event_interface {
 public:
  void on_device_event(const YUsbInfoDevice& device, _yusb_device_event kind) override {
    const std::lock_guard<std::mutex> lock(_mutex);
    events& kept = std::this_thread::get_id() == _owner ? replayed : live;
    kept.push_back({kind == YUSB_DEVICE_EVENT_APPEND, identity(device)});
  }
  std::size_t live_count() {
    const std::lock_guard<std::mutex> lock(_mutex);
    return live.size();
  }
  events live, replayed;

 private:
  const std::thread::id _owner = std::this_thread::get_id();
  std::mutex _mutex;
};

devices list_after(const events& log, std::size_t count) {
  devices list;
  for (std::size_t i = 0; i < count; ++i) {
    const auto found = std::find(list.begin(), list.end(), log[i].device);
    if (log[i].arrival) list.push_back(log[i].device);
    if (!log[i].arrival) list.erase(found);
  }
  return list;
}

// What one client saw between opening and closing a context, and how long the witness's log was around each
// replay.
struct visit {
  events live;
  events replayed[2];  // at registration, at its end
  std::size_t before[2], after[2];
  bool released;  // ended by releasing the context rather than by unregistering
};

struct walk {
  devices seen;
  std::size_t before, after;
};

void expect_list_within(const devices& list, const events& log, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i <= to; ++i) {
    if (list_after(log, i) == list) return;
  }
  std::string text;
  for (const unsigned long each : list) text += " " + std::to_string(each);
  text += " in";
  for (const event& each : log) text += (each.arrival ? " +" : " -") + std::to_string(each.device);
  ADD_FAILURE() << "a list that never was, between " << from << " and " << to << ":" << text;
}

devices devices_of(const events& replayed, bool arrival) {
  devices list;
  for (const event& each : replayed) {
    EXPECT_EQ(each.arrival, arrival);
    list.push_back(each.device);
  }
  return list;
}

}  // namespace

TEST_F(Library, AgreesWithAModelWhateverHappensAtOnce) {
  const char* const steps_wanted = std::getenv("YUSB_STEPS");
  const char* const seed_wanted = std::getenv("YUSB_SEED");
  const unsigned long steps = steps_wanted == nullptr ? 100000 : std::strtoul(steps_wanted, nullptr, 10);
  unsigned long seed =
      seed_wanted == nullptr ? std::random_device()() : std::strtoul(seed_wanted, nullptr, 10);
  unsigned long arrivals = 0;

  for (unsigned long done = 0; done < steps && !HasFailure();
       done += (kClients + 1) * kStepsOfAThread, ++seed) {
    SCOPED_TRACE(testing::Message() << "YUSB_SEED=" << seed);
    observer witness;
    ASSERT_TRUE(yusb::context_notify_object_append(context, &witness));
    std::vector<std::vector<visit>> visits(kClients);
    std::vector<std::vector<walk>> walks(kClients);

    std::vector<std::thread> clients;
    for (std::size_t c = 0; c < kClients; ++c) {
      clients.emplace_back([&, c] {
        std::mt19937 random(static_cast<unsigned>(seed * 10 + c));
        for (unsigned step = 0; step < kStepsOfAThread; ++step) {
          if (random() % 2 == 0) {
            walk seen;
            seen.before = witness.live_count();
            yusb::device_traverse(nullptr, [&seen](const YUsbInfoDevice& record) {
              seen.seen.push_back(identity(record));
              return true;
            });
            seen.after = witness.live_count();
            walks[c].push_back(seen);
            continue;
          }
          visit seen;
          _yusb_context* own = nullptr;
          yusb::context_create(&own);
          observer client;
          seen.before[0] = witness.live_count();
          EXPECT_TRUE(yusb::context_notify_object_append(own, &client));
          seen.after[0] = witness.live_count();
          seen.replayed[0] = std::exchange(client.replayed, {});
          for (unsigned i = random() % 300; i > 0; --i) std::this_thread::yield();
          seen.released = random() % 2 == 0;
          seen.before[1] = witness.live_count();
          if (!seen.released) {
            EXPECT_TRUE(yusb::context_notify_object_remove(own, &client));
            seen.after[1] = witness.live_count();
          }
          EXPECT_TRUE(yusb::context_release(own));
          if (seen.released) seen.after[1] = witness.live_count();
          seen.replayed[1] = client.replayed;
          seen.live = client.live;
          visits[c].push_back(seen);
        }
      });
    }
    std::mt19937 random(static_cast<unsigned>(seed * 10 + kClients));
    std::vector<int> plugged(kPorts, 0);
    for (unsigned step = 0; step < kStepsOfAThread; ++step) {
      const std::size_t port = random() % kPorts;
      if (plugged[port] != 0) bus.unplug(plugged[port]);
      if (plugged[port] == 0 || random() % 4 == 0) {  // or a re-plug
        ++arrivals;
        plugged[port] = bus.plug(make_device(static_cast<std::uint16_t>(1 + arrivals / 0xFFFF),
                                             static_cast<std::uint16_t>(1 + arrivals % 0xFFFF),
                                             static_cast<std::uint32_t>(port + 1) << 20));
      } else {
        plugged[port] = 0;
      }
      for (unsigned i = random() % 100; i > 0; --i) std::this_thread::yield();
    }
    for (const int id : plugged) bus.unplug(id);
    for (std::thread& client : clients) client.join();
    ASSERT_TRUE(bus.settle());
    ASSERT_TRUE(yusb::context_notify_object_remove(context, &witness));

    EXPECT_EQ(list_after(witness.live, witness.live.size()), devices());
    EXPECT_EQ(listed(), strings());
    for (std::size_t c = 0; c < kClients; ++c) {
      for (const walk& seen : walks[c]) expect_list_within(seen.seen, witness.live, seen.before, seen.after);
      for (const visit& seen : visits[c]) {
        // Live events are one unbroken piece of the witness's.
        EXPECT_TRUE(seen.live.empty() ||
                    std::search(witness.live.begin(), witness.live.end(), seen.live.begin(),
                                seen.live.end()) != witness.live.end());
        for (const int end : {0, 1}) {
          expect_list_within(devices_of(seen.replayed[end], end == 0), witness.live, seen.before[end],
                             seen.after[end]);
        }
      }
    }
  }
  RecordProperty("steps", std::to_string(steps));
}
