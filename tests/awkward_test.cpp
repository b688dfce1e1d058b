// Devices that come, go and answer at the worst moment.
#include <atomic>
#include <thread>

#include "support.h"

class AwkwardDevice : public Library {
 protected:
  void SetUp() override {
    Library::SetUp();
    client.then = [this](const YUsbInfoDevice& device, _yusb_device_event event) {
      heard.push_back("+-"[event] + std::string(device.location().data()) + " " + device.factory().data() +
                      " " + device.serialNumber().data());
    };
    listen();
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
    settle();
    EXPECT_EQ(std::exchange(heard, {}), expected);
  }

  strings heard;  // "+0xA manufacturer serial"; the monitor thread's until the bus has settled
};

TEST_F(AwkwardDevice, UnpluggedWhileItIsReadArrivesWithWhatWasReadAndLeaves) {
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
  listen();
  ready = true;
  expect_heard({"+0xA  ", "+0xB m read", "-0xA  "});
}

TEST_F(AwkwardDevice, ReplacedAtOnceAtTheSamePortIsTwoDevices) {
  const int id = plug(0xA, "old");
  expect_heard({"+0xA m old"});
  bus.unplug(id);
  plug(0xA, "new");
  expect_heard({"-0xA m old", "+0xA m new"});
}

TEST_F(AwkwardDevice, OneThatDoesNotAnswerHoldsUpOthersAndLosesNone) {
  plug(0xA, "slow", 300, static_cast<std::int32_t>(0xE00002D6));  // kIOReturnTimeout
  bus.unplug(plug(0xB, "unread"));
  plug(0xB, "read");
  EXPECT_EQ(listed(), "");  // only the monitor thread waits
  expect_heard({"+0xA  slow", "+0xB  ", "-0xB  ", "+0xB m read"});
}
