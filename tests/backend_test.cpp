// The backend on a simulated bus: what a device's answers become, what the handlers do with faults, and how
// the monitor thread starts and stops.

#include <CoreFoundation/CoreFoundation.h>

#include <csignal>
#include <stdexcept>

#include "platform/darwin/context.h"
#include "support.h"

using namespace yusb;

// What is listed, every field of it.
std::string shown_list() {
  std::string text;
  device_traverse(nullptr, [&](const YUsbInfoDevice& record) { return text += shown(record), true; });
  return text;
}

TEST_F(Library, FillsARecordFromADevice) {
  simulated_device device = make_device(0x05AC, 0x1393, 0xFD130000);
  device.release = 0x0216;
  device.manufacturer = "Appl\u00E9, Inc.";
  device.serial_number = "\u4E2D\u20AC";
  const int id = bus.plug(device);
  settle();
  EXPECT_EQ(shown_list(), "05ac:1393 0216 0xFD130000 0xFD130000 Appl\xE9, Inc.  \x2D\xAC");
  std::string requests;  // none for the product, which has no string
  for (const simulated_request& each : bus.requests(id)) {
    requests += YString::format("%02x %u %04x %04x %u; ", each.request_type, each.request, each.value,
                                each.index, each.length)
                    .data();
  }
  EXPECT_EQ(requests, "80 6 0301 0409 255; 80 6 0303 0409 255; ");
  EXPECT_TRUE(bus.unplug(id));
  settle();
  EXPECT_EQ(listed(), "");
}

TEST_F(Library, TakesTheLowBytesOfAStringReply) {
  using bytes = std::vector<std::uint8_t>;
  const std::tuple<std::uint32_t, bytes, std::string> cases[] = {
      {0, {}, ""},
      {0, {4}, ""},
      {0, {4, 3}, ""},
      {0, {4, 3, 'a'}, "a"},
      {0, {4, 3, 'a', 0, 'b'}, "ab"},
      {0, {0, 0, 'a', 0, 0x2D, 0x4E, 0xE9, 0, 0x3D, 0xD8}, "a\x2D\xE9\x3D"},  // no look at the header
      {0, {4, 3, 'a', 0, 0, 1, 'b', 0}, "a"},
      {0, {4, 3, ' ', 0, '\n', 0, 'b', 0, ' ', 0}, " \nb "},
      {0, bytes(255, 'x'), std::string(127, 'x')},
      {0, bytes(300, 'x'), std::string(127, 'x')},
      {0xE000404F, {4, 3, 'a', 0}, ""}};
  for (const auto& [status, reply, text] : cases) {
    simulated_device device = make_device(1, 2, 0x100);
    device.product_name = "replaced";
    device.replies[2] = {static_cast<std::int32_t>(status), reply, {}};
    const int id = bus.plug(device);
    settle();
    EXPECT_EQ(shown_list(), "0001:0002 0000 0x100 0x100  " + text + " ");
    bus.unplug(id);
    settle();
  }
}

TEST_F(Library, LeavesOutWhatCannotBeReadAndGoesOn) {
  global_release();
  std::vector<simulated_device> faulty(8, make_device(1, 2, 0));
  faulty[0].plugin_status = static_cast<std::int32_t>(0xE00002BE);
  faulty[1].plugin_missing = true;  // does not pass for the one before it
  faulty[2].interface_status = static_cast<std::int32_t>(0x80000004);
  faulty[3].interface_missing = true;
  faulty[4].failing = {simulated_number::vendor};
  faulty[5].failing = {simulated_number::product};
  faulty[6].failing = {simulated_number::release, simulated_number::location,
                       simulated_number::serial_number_index};
  faulty[6].serial_number = "unseen";
  faulty[7].location_property = false;
  std::vector<int> ids;
  for (std::uint32_t place = 1; place <= faulty.size(); ++place) {
    faulty[place - 1].location = 0x10 * place;
    ids.push_back(bus.plug(faulty[place - 1]));
    bus.plug(make_device(1, 1, place));
  }
  global_initialize();  // all of them are in one iterator
  settle();
  EXPECT_EQ(listed(), "0x1 0x2 0x3 0x4 0x5 0x6 0x0 0x7 0x80 0x8");
  EXPECT_EQ(
      log.take('4'),
      (strings{"4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (e00002be)",
               "4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (00000000)",
               "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (80000004)",
               "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (00000000)"}));
  context_create(&context);
  listen();
  client.take();
  for (const int id : ids) bus.unplug(id);
  settle();
  // One removal a device, unknown ones empty, but none where the location is not known.
  EXPECT_EQ(client.take(), "-(empty) -(empty) -(empty) -(empty) -(empty) -(empty) -(empty)");
  EXPECT_EQ(listed(), "0x1 0x2 0x3 0x4 0x5 0x6 0x0 0x7 0x80 0x8");
}

// ---- Devices that come, go and answer at the worst moment ----

struct AwkwardDevice : Library {
  void SetUp() override {
    Library::SetUp();
    client.then = [this](const YUsbInfoDevice& device, _yusb_device_event event) {
      heard.push_back("+-"[event] + std::string(device.location().data()) + " " + device.factory().data() +
                      " " + device.serialNumber().data());
    };
    listen();
  }

  // Attaches a device; one with a delay is asked for its manufacturer when this returns.
  int plug(std::uint32_t location, const char* serial, int delay = 0, std::int32_t status = 0) {
    simulated_device device = make_device(1, 2, location);
    device.manufacturer = "any";
    device.serial_number = serial;
    device.replies[1] = {status, {4, 3, 'm', 0}, std::chrono::milliseconds(delay)};
    const int id = bus.plug(device);
    EXPECT_TRUE(delay == 0 || comes_true([&] { return !bus.requests(id).empty(); }));
    return id;
  }

  void expect_heard(const strings& expected) {
    settle();
    EXPECT_EQ(std::exchange(heard, {}), expected);
  }

  strings heard;  // "+0xA manufacturer serial"; the monitor thread's until the bus has settled
};

TEST_F(AwkwardDevice, UnpluggedWhileItIsReadArrivesWithWhatWasReadAndLeaves) {
  bus.unplug(plug(0xA, "serial", 1000));
  expect_heard({"+0xA m ", "-0xA m "});
}

TEST_F(AwkwardDevice, UnpluggedBetweenTheListingAndTheWatchingIsToldOf) {
  global_release();
  const int id = plug(0xA, "unread");
  plug(0xB, "read");
  gate ready;
  bus.before_calls([&](const std::string& call) {
    if (call != "IOServiceAddMatchingNotification") return true;
    ready.wait();
    bus.unplug(id);
    return true;
  });
  global_initialize();
  context_create(&context);
  listen();
  ready.open();
  expect_heard({"+0xA  ", "+0xB m read", "-0xA  "});
}

TEST_F(AwkwardDevice, OneThatDoesNotAnswerHoldsUpOthersAndLosesNone) {
  plug(0xA, "slow", 1000, static_cast<std::int32_t>(0xE00002D6));  // kIOReturnTimeout
  bus.unplug(plug(0xB, "unread"));
  plug(0xB, "read");
  EXPECT_EQ(listed(), "");  // only the monitor thread waits
  expect_heard({"+0xA  slow", "+0xB  ", "-0xB  ", "+0xB m read"});
}

// ---- The monitor thread ----

TEST(Monitor, RefusesASecondStartAndForgetsNothing) {
  simulator bus;
  EXPECT_FALSE(platform_hotplug_start(nullptr));
  _yusb_platform_context own, *const context = &own;
  EXPECT_TRUE(platform_hotplug_stop(context));  // never started
  EXPECT_TRUE(context->stopRequested);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(platform_hotplug_start(context));
    EXPECT_FALSE(platform_hotplug_start(context));  // also when the thread has not begun
    ASSERT_TRUE(bus.settle());
    EXPECT_FALSE(platform_hotplug_start(context));
    EXPECT_TRUE(context->runLoop != nullptr && context->running);
    EXPECT_TRUE(platform_hotplug_stop(context));
    EXPECT_FALSE(context->runLoop != nullptr || context->running);
    EXPECT_EQ(simulator::leaks(), strings());
  }
}

TEST_F(Library, TakesNoSignalOfTheHostOnItsThread) {
  sigset_t blocked;
  client.then = [&](auto&, auto) { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); };
  listen();
  bus.plug(make_device(1, 2, 3));
  settle();
  for (const int each : {SIGINT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1, SIGPROF, SIGRTMIN})
    EXPECT_TRUE(sigismember(&blocked, each)) << each;
  EXPECT_FALSE(sigismember(&blocked, SIGSEGV)) << "its own";
  append({"a"});
  EXPECT_FALSE(sigismember(&blocked, SIGTERM)) << "on the host's thread";
}

// A stop that arrives while the monitor thread is at a given call, or has not begun.
TEST(Monitor, StopsFromEveryWindowOfTheStart) {
  for (const std::string window : {"", "IONotificationPortCreate", "IOServiceMatching", "CFRunLoopAddSource",
                                   "IOServiceAddMatchingNotification", "CFRunLoopRun"}) {
    for (const bool with_devices : {false, true}) {
      SCOPED_TRACE(window);
      kept_log log;
      simulator bus;
      if (with_devices) bus.plug(make_device(1, 2, 3));
      gate reached, stopping;
      bus.before_calls([&, host = std::this_thread::get_id()](const char* call) {
        if (call != window || std::this_thread::get_id() == host) return true;
        reached.open();
        _yusb_platform_context other;
        global_release();  // refused here, where it would wait for itself
        EXPECT_TRUE(platform_hotplug_stop(&other) && !other.stopRequested);
        stopping.wait();
        // The delay under test: the stop polls meanwhile.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        bus.before_calls(nullptr);
        return true;
      });
      global_initialize();
      if (!window.empty()) reached.wait();
      stopping.open();
      global_release();
      EXPECT_EQ(simulator::leaks(), strings());
      if (window.empty()) continue;
      const strings errors = log.take('4');
      ASSERT_GE(errors.size(), 2u);
      EXPECT_EQ(errors[0].find("4 [ common_global_release : "), 0u) << errors[0];
      EXPECT_EQ(errors[1].find("4 [ platform_hotplug_stop : "), 0u) << errors[1];
    }
  }
}

TEST(Monitor, EndsTheProcessBeforeAnExceptionReachesIOKit) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  for (const std::string in_handler :
       {"IOCreatePlugInInterfaceForService", "IORegistryEntryCreateCFProperty"}) {
    const auto throw_there = [&] {
      simulator bus;
      global_initialize();
      bus.settle();
      bus.before_calls([&](const char* call) {
        return call == in_handler ? throw std::runtime_error("in a handler") : true;
      });
      bus.unplug(bus.plug(make_device(1, 2, 3)));
      bus.settle();
    };
    EXPECT_EXIT(throw_there(), testing::KilledBySignal(SIGABRT), "terminat") << in_handler;
  }
}

TEST(Monitor, LeavesNothingWhenItsLoopWasStoppedByTheHost) {
  simulator bus;
  std::thread([] {}).join();  // A sanitizer starts a thread of its own with the first.
  const auto threads = entries("/proc/self/task");
  global_initialize();
  ASSERT_TRUE(bus.settle());
  bus.before_calls([](const std::string& call) {
    if (call == "IOCreatePlugInInterfaceForService") CFRunLoopStop(CFRunLoopGetCurrent());
    return true;
  });
  bus.plug(make_device(1, 2, 3));
  EXPECT_TRUE(comes_true([&] { return entries("/proc/self/task") == threads; }));
  global_release();
  EXPECT_EQ(simulator::leaks(), strings());
}

TEST(Monitor, SurvivesASystemThatRefuses) {
  for (const std::string refused : {"IONotificationPortCreate", "IONotificationPortGetRunLoopSource",
                                    "IOServiceMatching", "IOServiceAddMatchingNotification"}) {
    kept_log log;
    simulator bus;
    bus.plug(make_device(1, 2, 3));
    bus.before_calls([&](const char* call) { return call != refused; });
    global_initialize();
    const strings errors = log.await('4');
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors[0].find("4 [ darwin_create_device_notify_thread : "), 0u) << refused << errors[0];
    EXPECT_EQ(listed(), "");
    global_release();
    EXPECT_EQ(simulator::leaks(), strings());
  }
}
