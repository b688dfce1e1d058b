// Waiting until a device can be opened, on a simulated bus.
#include <yusb_openable.h>

#include <future>

#include "support.h"

using namespace yusb;
using namespace std::chrono_literals;

struct Openable : Library {
  // Attaches a device and returns its record.
  YUsbInfoDevice plug(std::optional<std::chrono::milliseconds> openable_after,
                      std::uint32_t location = 0x01100000) {
    simulated_device device = make_device(0x18D1, 0x4EE7, location);
    device.openable_after = openable_after;
    id = bus.plug(device);
    settle();
    YUsbInfoDevice last;
    device_traverse(nullptr, [&](const YUsbInfoDevice& record) { return last = record, true; });
    return last;
  }

  int id = 0;
};

TEST_F(Openable, HasThreeAnswers) {
  const YUsbInfoDevice record = plug(0ms);
  EXPECT_EQ(wait_openable(record, 0ms), openability::openable);
  bus.unplug(id);
  EXPECT_EQ(wait_openable(record, 30s), openability::gone);
  EXPECT_EQ(wait_openable(plug({}), -1ms), openability::timed_out);
  EXPECT_EQ(wait_openable(plug({}, 0x01200000), 20ms), openability::timed_out);
  EXPECT_EQ(wait_openable(plug(20ms, 0x01300000), std::chrono::milliseconds::max()), openability::openable);
}

TEST_F(Openable, IsAnsweredWhenTheNodeOpensOrTheDeviceLeaves) {
  for (const openability expected : {openability::openable, openability::gone}) {
    const YUsbInfoDevice record = plug({});
    auto answer = std::async(std::launch::async,
                             [&] { return wait_openable(record, std::chrono::milliseconds::max()); });
    EXPECT_EQ(answer.wait_for(20ms), std::future_status::timeout) << "the node does not open";
    EXPECT_TRUE(expected == openability::gone ? bus.unplug(id) : bus.open_node(id));
    EXPECT_EQ(answer.get(), expected);
    bus.unplug(id);
    settle();
  }
  EXPECT_FALSE(bus.open_node(id));
}

TEST_F(Openable, IsRefusedUnderTheLocks) {
  std::optional<openability> answer;
  client.then = [&](const YUsbInfoDevice& device, _yusb_device_event) {
    answer = wait_openable(device, 30s);
  };
  listen();
  plug({});
  EXPECT_EQ(answer, openability::refused);
  EXPECT_EQ(log.take('4').size(), 1u);
}

TEST_F(Openable, SeveralDevicesAreWaitedForAtOnce) {
  const YUsbInfoDevice never = plug({}, 0x01100000);
  const YUsbInfoDevice late = plug({}, 0x01200000);
  const int late_id = id;
  const YUsbInfoDevice leaving = plug({}, 0x01300000);
  detail::node_waiter waiter;
  waiter.add(1, never, 10ms);
  waiter.add(2, late, 30s);
  waiter.add(3, leaving, 30s);
  waiter.add(4, leaving, 30s);
  const auto next = [&] {
    const auto answer = waiter.wait(30s, -1);
    return answer ? std::pair(answer->id, answer->result) : std::pair(0u, openability::refused);
  };
  EXPECT_EQ(next(), std::pair(1u, openability::timed_out));
  bus.open_node(late_id);
  EXPECT_EQ(next(), std::pair(2u, openability::openable));
  waiter.remove(4);
  bus.unplug(id);
  EXPECT_EQ(next(), std::pair(3u, openability::gone));
  EXPECT_FALSE(waiter.wait(0ms, -1).has_value());
}
