// Calls in client code that the library waits for, and calls before initialisation.
#include <stdexcept>

#include "support.h"

using namespace yusb;

struct Reentry : Library {};

// A call that takes a lock. If it is refused, it has no effect.
struct locking_call {
  const char* name;                // in the log
  bool does_nothing_before_start;  // and returns false there
  bool (*call)(_yusb_context*, yusb_device_event_interface*);
};

const device_visitor everything = [](const YUsbInfoDevice&) { return true; };

template <typename Function>
bool nothing_returned(Function function) {
  function();
  return false;
}

const locking_call locking_calls[] = {
    {"context_create", false,
     [](auto*, auto*) {
       _yusb_context* created = nullptr;
       return context_create(&created);
     }},
    {"context_release", false, [](auto* context, auto*) { return context_release(context); }},
    {"common_global_initialize", false, [](auto*, auto*) { return nothing_returned(global_initialize); }},
    {"airpods_traverse", false, [](auto*, auto*) { return airpods_traverse(nullptr, everything); }},
    {"common_global_release", true, [](auto*, auto*) { return nothing_returned(global_release); }},
    {"common_object_append", true, [](auto* context, auto*) { return common_object_append(context); }},
    {"common_object_remove", true, [](auto* context, auto*) { return common_object_remove(context); }},
    {"common_notify_append", true, context_notify_object_append},
    {"common_notify_remove", true, context_notify_object_remove},
    {"common_notify_handle", true,
     [](auto* context, auto*) { return nothing_returned([=] { common_notify_handle(context, {}, {}); }); }},
    {"common_device_append", true,
     [](auto*, auto*) { return nothing_returned([] { common_device_append({}); }); }},
    {"common_device_remove", true,
     [](auto*, auto*) { return nothing_returned([] { common_device_remove(make_record(1, 1, "a")); }); }},
    {"common_device_remove_from_location", true,
     [](auto*, auto*) { return nothing_returned([] { common_device_remove_from_location("a"); }); }},
    {"common_device_remove_from_instance_path", true,
     [](auto*, auto*) { return nothing_returned([] { common_device_remove_from_instance_path("a"); }); }},
    {"common_device_is_exist", true,
     [](auto*, auto*) { return device_is_exist(nullptr, make_record(1, 1, "a")); }},
    {"common_device_traverse", true,
     [](auto*, auto*) { return nothing_returned([] { common_device_traverse(everything); }); }},
    {"device_traverse", true, [](auto*, auto*) { return device_traverse(nullptr, everything); }}};

TEST_F(Reentry, RefusesAHandlerUnderTheLocks) {
  client.then = [&](const YUsbInfoDevice&, _yusb_device_event) {
    for (const locking_call& each : locking_calls) EXPECT_FALSE(each.call(context, &client)) << each.name;
  };
  const auto expect_heard = [&](const char* heard, std::size_t events) {
    EXPECT_EQ(client.take(), heard);
    const strings errors = log.take('4');
    ASSERT_EQ(errors.size(), events * std::size(locking_calls));
    for (std::size_t i = 0; i < errors.size(); ++i) {
      const std::string name = locking_calls[i % std::size(locking_calls)].name;
      EXPECT_EQ(errors[i].find("4 [ " + name + " : "), 0u) << errors[i];
    }
  };
  listen();
  append({"a"});  // on this thread
  expect_heard("+a", 1);
  const int id = bus.plug(make_device(1, 2, 0xB));  // on the monitor thread
  settle();
  bus.unplug(id);
  settle();
  expect_heard("+0xB -0xB", 2);
  context_release(context);  // in a replay under the locks
  expect_heard("-a", 1);
  EXPECT_EQ(listed(), "a");
}

TEST_F(Reentry, RefusesALogSinkUnderTheLocks) {
  static bool exists;
  exists = true;
  testing::internal::CaptureStderr();
  const auto sink = [](auto, auto*, auto, auto*) {
    exists = device_is_exist(nullptr, make_record(1, 1, "a"));
  };
  YLog::setSink(sink, nullptr);
  append({"a"});
  EXPECT_FALSE(exists);
  exists = true;
  common_device_printf(make_record(1, 1, "a"));  // holds no lock, but another thread may wait for the log
  YLog::setSink(nullptr, nullptr);
  EXPECT_FALSE(exists);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("[ common_device_is_exist : "), std::string::npos);
}

TEST(ReentryUninitialised, EveryLockingCallDoesNothing) {
  recorder client;
  for (const bool released : {false, true}) {
    _yusb_context* context = nullptr;
    EXPECT_TRUE(context_create(&context));
    ASSERT_NE(context, nullptr);
    for (const locking_call& each : locking_calls) {
      if (!each.does_nothing_before_start) continue;
      EXPECT_FALSE(each.call(context, &client)) << each.name;
    }
    EXPECT_TRUE(airpods_traverse(nullptr, everything));
    EXPECT_TRUE(context_release(context));
    if (released) break;
    const simulator bus;
    global_initialize();
    global_release();
  }
}

TEST_F(Reentry, TerminatesTheProcessWhenClientCodeThrows) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  client.then = [](auto&, auto) { throw std::runtime_error("from a handler"); };
  const auto visitor = [](const YUsbInfoDevice&) -> bool { throw std::runtime_error("from a visitor"); };
  listen();
  EXPECT_DEATH(append({"a"}), "");
  EXPECT_TRUE(context_notify_object_remove(context, &client));
  common_device_append(make_record(0x05AC, 0x1393, "a"));
  EXPECT_DEATH(context_notify_object_append(context, &client), "");
  EXPECT_DEATH(device_traverse(nullptr, visitor), "");
  EXPECT_DEATH(airpods_traverse(nullptr, visitor), "");
}
