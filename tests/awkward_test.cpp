// Devices that come, go and answer at the worst moment.
#include <atomic>
#include <thread>

#include "support.h"

class AwkwardDevice : public Library {
 protected:
  AwkwardDevice() {
    client.then = [this](const YUsbInfoDevice& device, _yusb_device_event event) {
      heard.push_back((event == YUSB_DEVICE_EVENT_APPEND ? "+" : "-") +
                      std::string(device.location().data()) + " " + device.factory().data() + " " +
                      device.serialNumber().data());
    };
  }

  // Attaches a device; one with a delay is on its way to tell its manufacturer when this returns.
  int plug(std::uint32_t location, const char* serial, int delay = 0, std::int32_t status = 0) {
    yusb::simulated_device device = make_device(1, 2, location);
    device.manufacturer = "any";
    device.serial_number = serial;
    device.replies[1] = {status, {4, 3, 'm', 0}, std::chrono::milliseconds(delay)};
    const int id = bus.plug(device);
    while (delay != 0 && bus.requests(id).empty()) std::this_thread::yield();
    return id;
  }

  void expect_heard(const strings& expected) {
    ASSERT_TRUE(bus.settle());
    EXPECT_EQ(std::exchange(heard, {}), expected);
  }

  recorder client;
  strings heard;  // "+0xA manufacturer serial"; the monitor thread's until the bus has settled
};

TEST_F(AwkwardDevice, UnpluggedWhileItIsReadArrivesWithWhatWasReadAndLeaves) {
  yusb::context_notify_object_append(context, &client);
  bus.unplug(plug(0xA, "serial", 300));
  expect_heard({"+0xA m ", "-0xA m "});
}

TEST_F(AwkwardDevice, UnpluggedBetweenTheListingAndTheWatchingIsToldOf) {
  yusb::global_release();
  const int id = plug(0xA, "unread");
  plug(0xB, "read");
  std::atomic<bool> ready{false};
  bus.before_calls([&](const std::string& call) {
    if (call != "IOServiceAddMatchingNotification") return true;
    while (!ready) std::this_thread::yield();
    bus.unplug(id);
    return true;
  });
  yusb::global_initialize();
  yusb::context_create(&context);
  yusb::context_notify_object_append(context, &client);
  ready = true;
  expect_heard({"+0xA  ", "+0xB m read", "-0xA  "});
}

TEST_F(AwkwardDevice, WithoutAnInterfaceDoesNotPassForTheOneBeforeIt) {
  yusb::global_release();
  for (std::uint32_t location = 1; location <= 5; ++location) {
    yusb::simulated_device device = make_device(1, 2, location);
    device.plugin_missing = location == 2;
    device.interface_missing = location == 4;
    bus.plug(device);
  }
  yusb::global_initialize();  // all of them are in one iterator
  ASSERT_TRUE(bus.settle());
  EXPECT_EQ(listed(), (strings{"0x1", "0x3", "0x5"}));
}

TEST_F(AwkwardDevice, ReplacedAtOnceAtTheSamePortIsTwoDevices) {
  yusb::context_notify_object_append(context, &client);
  const int id = plug(0xA, "old");
  expect_heard({"+0xA m old"});
  bus.unplug(id);
  plug(0xA, "new");
  expect_heard({"-0xA m old", "+0xA m new"});
}

TEST_F(AwkwardDevice, AHubThatLeavesWithSevenBehindItIsEightRemovals) {
  int ids[9];
  for (std::uint32_t i = 0; i < 9; ++i) ids[i] = plug(i + 1, "");
  ASSERT_TRUE(bus.settle());
  yusb::context_notify_object_append(context, &client);
  heard.clear();
  for (int i = 7; i >= 0; --i) bus.unplug(ids[i]);
  expect_heard({"-0x8 m ", "-0x7 m ", "-0x6 m ", "-0x5 m ", "-0x4 m ", "-0x3 m ", "-0x2 m ", "-0x1 m "});
  EXPECT_EQ(listed(), strings{"0x9"});
}

TEST_F(AwkwardDevice, OneThatDoesNotAnswerHoldsUpOthersAndLosesNone) {
  yusb::context_notify_object_append(context, &client);
  plug(0xA, "slow", 300, static_cast<std::int32_t>(0xe00002d6));  // kIOReturnTimeout
  bus.unplug(plug(0xB, "unread"));
  plug(0xB, "read");
  EXPECT_EQ(listed(), strings());  // only the monitor thread waits
  expect_heard({"+0xA  slow", "+0xB  ", "-0xB  ", "+0xB m read"});
}
