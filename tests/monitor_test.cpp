// Start and stop of the monitor thread.
#include <CoreFoundation/CoreFoundation.h>

#include <csignal>
#include <future>
#include <stdexcept>

#include "platform/darwin/context.h"
#include "support.h"

using namespace yusb;

// A stop while the monitor thread is in a given call, or has not begun.
TEST(Monitor, StopsFromEveryWindowOfTheStart) {
  for (const std::string window : {"", "IONotificationPortCreate", "IOServiceMatching", "CFRunLoopAddSource",
                                   "IOServiceAddMatchingNotification", "CFRunLoopRun"}) {
    for (const bool with_devices : {false, true}) {
      SCOPED_TRACE(window);
      log_capture log;
      simulator bus;
      if (with_devices) bus.plug(make_device(1, 2, 3));
      gate reached, stopping;
      bus.before_calls([&, host = std::this_thread::get_id()](const char* call) {
        if (call != window || std::this_thread::get_id() == host) return true;
        reached.open();
        _yusb_platform_context other;
        global_release();  // refused, because it would wait for itself
        EXPECT_TRUE(platform_hotplug_stop(&other) && !other.stopRequested);
        stopping.wait();
        // The delay under test: the stop polls during it.
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

TEST(Monitor, LeavesNothingWhenItsLoopWasStoppedByTheHost) {
  simulator bus;
  std::thread([] {}).join();  // A sanitizer starts its own thread with the first one.
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

// A variable of the monitor thread, which ends after the thread's function and before the library's own.
struct thread_end {
  ~thread_end() {
    if (reached == nullptr) return;
    reached->open();
    proceed->wait();
  }
  gate *reached = nullptr, *proceed = nullptr;
};
thread_local thread_end _thread_end;

TEST(Monitor, HasLeftTheLibraryWhenAReleaseReturns) {
  gate reached, proceed;
  simulator bus;
  bus.before_calls([&](const std::string& call) {
    if (call == "CFRunLoopRun") _thread_end.reached = &reached, _thread_end.proceed = &proceed;
    return true;
  });
  global_initialize();
  ASSERT_TRUE(bus.settle());
  auto release = std::async(std::launch::async, global_release);
  reached.wait();
  EXPECT_EQ(release.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  proceed.open();
  release.get();
}

TEST(Monitor, SurvivesASystemThatRefuses) {
  for (const std::string refused : {"IONotificationPortCreate", "IONotificationPortGetRunLoopSource",
                                    "IOServiceMatching", "IOServiceAddMatchingNotification"}) {
    log_capture log;
    simulator bus;
    bus.plug(make_device(1, 2, 3));
    bus.before_calls([&](const char* call) { return call != refused; });
    global_initialize();
    strings errors;
    ASSERT_TRUE(comes_true([&] {
      if (errors.empty()) errors = log.take('4');
      return !errors.empty();
    }));
    EXPECT_EQ(errors[0].find("4 [ darwin_create_device_notify_thread : "), 0u) << refused << errors[0];
    EXPECT_EQ(listed(), "");
    global_release();
    EXPECT_EQ(simulator::leaks(), strings());
  }
}
