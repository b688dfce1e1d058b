// What happens when memory runs out, and when client code throws. Each case runs in a process of its own.
#include <cstddef>
#include <new>
#include <stdexcept>

#include "support.h"

namespace {

std::atomic<int> _failNothrow{0};    // which of the coming allocations that must not throw fails; 0 for none
thread_local bool _failing = false;  // whether every allocation that may throw fails on this thread

std::atomic<long> _left{0};  // allocations that must not throw and that nothing has freed

// A block, with what it counts in front of it.
void* allocate(std::size_t size, long count) {
  auto* const block = static_cast<std::max_align_t*>(std::malloc(sizeof(std::max_align_t) + size));
  *reinterpret_cast<long*>(block) = count;
  _left += count;
  return block + 1;
}

}  // namespace

// Not inlined: a compiler that sees free() behind a new-expression takes it for a mistake.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return _failNothrow > 0 && --_failNothrow == 0 ? nullptr : allocate(size, 1);
}
__attribute__((noinline)) void* operator new(std::size_t size) {
  return _failing ? throw std::bad_alloc() : allocate(size, 0);
}
__attribute__((noinline)) void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  auto* const whole = static_cast<std::max_align_t*>(block) - 1;
  _left -= *reinterpret_cast<long*>(whole);
  std::free(whole);
}
__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace {

// The allocations in their order: context set, its mutex, device list, its mutex, platform context, a
// context.
void fail_allocation(int which) {
  YLog::setThreshold(EYORVAN_LOG_LEVEL_FATAL);
  const bool contexts = which > 2, devices = which < 3 || which > 4, thread = which != 5;
  yusb::simulator bus;
  recorder client;
  _yusb_context* context = nullptr;
  _failNothrow = which;
  yusb::global_initialize();
  bool right = yusb::context_create(&context) && (context == nullptr) == (which == 6);
  right = right && !yusb::common_object_append(context);  // in the set already, or there is no set
  if (context != nullptr) right = right && yusb::common_object_remove(context) == contexts;
  append({"a"});
  right = right && listed() == (contexts && devices ? "a" : "");
  right = right && yusb::device_traverse(nullptr, [](auto&) { return true; }) == devices;
  if (context != nullptr) right = right && yusb::context_notify_object_append(context, &client) == devices;
  right = right && bus.settle(std::chrono::seconds(thread ? 30 : 0)) == thread;
  if (context != nullptr) yusb::context_release(context);
  yusb::global_release();
  std::exit(right && _left == 0 ? 0 : 1);
}

template <typename Call>
void with_no_memory(Call call) {
  const struct until_it_ends {
    ~until_it_ends() { _failing = false; }
  } failing;
  _failing = true;
  call();
}

}  // namespace

TEST(OutOfMemory, EachAllocationThatFailsLeavesTheRestWorking) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  for (int which = 1; which <= 6; ++which) {
    EXPECT_EXIT(fail_allocation(which), testing::ExitedWithCode(0), "") << which;
  }
}

TEST(OutOfMemory, PassesOnWhereItMayAndEndsTheProcessElsewhere) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const YUsbInfoDevice record = make_record(1, 1, "a", nullptr, {"a maker", "", "serial"});
  EXPECT_FALSE(yusb::device_is_android(record));  // builds the tables, for which there must be memory
  EXPECT_THROW(with_no_memory([&] { yusb::airpods_get_serial_number(record); }), std::bad_alloc);
  EXPECT_THROW(with_no_memory([&] { yusb::device_is_android(record); }), std::bad_alloc);
  const auto append = [&record] {
    const yusb::simulator bus;
    yusb::global_initialize();
    with_no_memory([&record] { yusb::common_device_append(record); });
  };
  EXPECT_DEATH(append(), "");
}

TEST_F(Library, EndsTheProcessWhenClientCodeThrows) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  client.then = [](auto&, auto) { throw std::runtime_error("from a handler"); };
  const auto visitor = [](const YUsbInfoDevice&) -> bool { throw std::runtime_error("from a visitor"); };
  listen();
  EXPECT_DEATH(append({"a"}), "");
  EXPECT_TRUE(yusb::context_notify_object_remove(context, &client));
  yusb::common_device_append(make_record(0x05AC, 0x1393, "a"));
  EXPECT_DEATH(yusb::context_notify_object_append(context, &client), "");
  EXPECT_DEATH(yusb::device_traverse(nullptr, visitor), "");
  EXPECT_DEATH(yusb::airpods_traverse(nullptr, visitor), "");
}
