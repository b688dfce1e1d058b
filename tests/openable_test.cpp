// Waiting until a device can be opened, on a simulated bus.
#include <yusb_details.h>
#include <yusb_openable.h>
#include <yusb_openable_queue.h>

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
    return attach(device);
  }
};

TEST_F(Openable, HasThreeAnswers) {
  EXPECT_EQ(wait_openable(plug(0ms), 0ms), openability::openable);
  bus.unplug(id);
  for (const openability expected : {openability::openable, openability::gone}) {
    const YUsbInfoDevice record = plug({});
    EXPECT_EQ(wait_openable(record, 20ms), openability::timed_out);
    auto answer = std::async(std::launch::async,
                             [&] { return wait_openable(record, std::chrono::milliseconds::max()); });
    EXPECT_EQ(answer.wait_for(20ms), std::future_status::timeout) << "the node does not open";
    EXPECT_TRUE(expected == openability::gone ? bus.unplug(id) : bus.open_node(id));
    EXPECT_EQ(answer.get(), expected);
    bus.unplug(id);
    EXPECT_EQ(wait_openable(record, 30s), openability::gone);
  }
}

TEST_F(Openable, IsRefusedUnderTheLocksButDetailsAreNot) {
  std::optional<openability> answer;
  std::optional<usb_details> details;
  client.then = [&](const YUsbInfoDevice& device, _yusb_device_event) {
    answer = wait_openable(device, 30s);
    details = device_details(device);
  };
  listen();
  plug({});
  EXPECT_EQ(answer, openability::refused);
  EXPECT_EQ(log.take('4').size(), 1u);
  EXPECT_TRUE(details.has_value());
}

// "+0x1" an arrival, "!0x1" openable, "?0x1" timed out, "-0x1" a removal, "=0x10x2" a resync, or nothing.
std::string next(openable_queue& queue, std::chrono::milliseconds limit = 0ms) {
  const auto event = queue.next(limit);
  if (!event) return "";
  std::string text = std::string(1, "+!?-="[static_cast<int>(event->kind)]) + event->device.location().data();
  for (const YUsbInfoDevice& device : event->devices) text += device.location().data();
  return text;
}

TEST_F(Openable, AQueueReportsItAfterTheArrival) {
  const auto expect = [](openable_queue& queue, const strings& events) {
    for (const auto& each : events) EXPECT_EQ(next(queue, each.empty() ? 0ms : 30000ms), each);
  };
  plug(0ms, 0x1);
  openable_queue queue(30s, {}, 4, watch_end::removals), impatient(10ms);
  plug({}, 0x2);
  const int on_request = id;
  expect(queue, {"+0x1", "+0x2", "!0x1", ""});
  expect(impatient, {"+0x1", "+0x2", "!0x1", "?0x2"});
  bus.open_node(on_request);
  expect(queue, {"!0x2", ""});
  expect(impatient, {""});

  plug(0ms, 0x3);
  bus.unplug(id);
  plug({}, 0x4);
  expect(queue, {"+0x3", "-0x3", "+0x4", ""});
  bus.unplug(id);
  settle();
  expect(queue, {"-0x4", ""});
  for (std::uint32_t location = 0x5; location < 0xA; ++location) plug(0ms, location);
  expect(queue, {"=0x10x20x50x60x70x80x9", "!0x1", "!0x2", "!0x5"});
  queue.close();
  EXPECT_EQ(next(queue), "=");
  EXPECT_EQ(next(queue, 30s), "");
}
