// The descriptor of a watch queue: when it is readable, and how many system calls it costs.
#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <functional>
#include <future>
#include <system_error>

#include "support.h"

#ifdef YUSB_TEST_PIPE  // as on other systems
#undef __linux__
#endif
#include <yusb_watcher.h>

using namespace yusb;
using namespace std::chrono_literals;

namespace {

// The linker replaces the calls in this program by the functions below.
std::atomic<long> _calls{0};          // calls of read and write
std::atomic<bool> _exhausted{false};  // no descriptor can be opened

int refused_or(const std::function<int()>& open) {
  if (!_exhausted) return open();
  errno = EMFILE;
  return -1;
}

}  // namespace

extern "C" ssize_t __real_read(int, void*, std::size_t);
extern "C" ssize_t __real_write(int, const void*, std::size_t);
extern "C" ssize_t __wrap_read(int from, void* to, std::size_t size) {
  return ++_calls, __real_read(from, to, size);
}
extern "C" ssize_t __wrap_write(int to, const void* from, std::size_t size) {
  return ++_calls, __real_write(to, from, size);
}
extern "C" int __real_eventfd(unsigned, int);
extern "C" int __real_pipe(int[2]);
extern "C" int __wrap_eventfd(unsigned count, int flags) {
  return refused_or([&] { return __real_eventfd(count, flags); });
}
extern "C" int __wrap_pipe(int ends[2]) {
  return refused_or([&] { return __real_pipe(ends); });
}

struct Descriptor : Library {
  Descriptor() { YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR); }

  static bool readable(int descriptor) {
    pollfd waited = {descriptor, POLLIN, 0};
    return poll(&waited, 1, 0) == 1;
  }

  // Returns the number of system calls since the last call.
  static long calls() { return _calls.exchange(0); }
};

TEST_F(Descriptor, CostsASystemCallOnlyWhereTheQueueFillsOrEmpties) {
  const auto take = [](watch_queue& queue, int count) {
    while (count-- > 0) EXPECT_TRUE(queue.next(0ms));
  };
  watch_queue queue;
  calls();
  append({"1", "2"});
  take(queue, 2);
  EXPECT_EQ(calls(), 0);  // it has not been opened

  append({"3"});
  const int descriptor = queue.descriptor();
  EXPECT_TRUE(readable(descriptor));
  EXPECT_EQ(calls(), 1);
  append({"4", "5"});
  take(queue, 2);
  EXPECT_TRUE(readable(descriptor));
  EXPECT_EQ(calls(), 0);
  take(queue, 1);
  EXPECT_FALSE(readable(descriptor) || queue.next(0ms));
  EXPECT_EQ(calls(), 1);
}

TEST_F(Descriptor, IsReadableForAResync) {
  append({"1"});
  watch_queue queue({}, 0);
  const int descriptor = queue.descriptor();
  EXPECT_TRUE(readable(descriptor));
  EXPECT_EQ(queue.next(0ms)->devices.size(), 1);
  EXPECT_FALSE(readable(descriptor));
}

TEST_F(Descriptor, StaysReadableOnceTheQueueIsClosed) {
  watch_queue queue;
  const int descriptor = queue.descriptor();
  queue.close();
  EXPECT_TRUE(readable(descriptor));
  EXPECT_FALSE(queue.next(0ms));
  EXPECT_TRUE(readable(descriptor));
}

TEST_F(Descriptor, BelongsToTheQueueAlone) {
  const auto open_descriptors = [] {
    int count = 0;
    for (int each = 0; each < 256; ++each) count += fcntl(each, F_GETFD) != -1;
    return count;
  };
  const int before = open_descriptors();
  std::optional<watch_queue> first(std::in_place);
  const int descriptor = first->descriptor();
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  std::optional<watch_queue> second(std::move(*first));
  first.reset();
  EXPECT_EQ(second->descriptor(), descriptor);
  second.reset();
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Descriptor, ThatCannotBeOpenedIsAnErrorThatLeavesTheQueueWorking) {
  watch_queue queue;
  _exhausted = true;
  try {
    queue.descriptor();
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_files_open) << error.what();
  }
  _exhausted = false;
  append({"1", "2"});
  const int descriptor = queue.descriptor();
  EXPECT_TRUE(queue.next(0ms));
  EXPECT_TRUE(readable(descriptor));
  EXPECT_TRUE(queue.next(0ms));
  EXPECT_FALSE(readable(descriptor));
}

// YUSB_STEPS sets the number of events. The threads of a round stop when all of its events, or half of them,
// have been taken; then no thread is in a function of the queue.
TEST_F(Descriptor, LosesNoEventOfAStorm) {
  constexpr unsigned rounds = 20, threads = 3;
  const unsigned long pairs = 1 + env_or("YUSB_STEPS", 60'000) / (rounds * threads * 2),
                      total = pairs * threads * 2;
  watch_queue queue({}, SIZE_MAX);
  const int descriptor = queue.descriptor();
  for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
    watch_queue stop([](auto&) { return false; });
    std::atomic<unsigned long> taken{0};
    std::promise<void> enough;
    const auto change = [&](const YString& location) {
      for (unsigned long pair = 0; pair < pairs; ++pair) {
        common_device_append(make_record(1, 1, location));
        common_device_remove_from_location(location);
      }
    };
    const auto take = [&] {
      pollfd waited[] = {{descriptor, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}};
      while (poll(waited, 2, 60'000) > 0 && waited[1].revents == 0) {
        if (queue.next(0ms) && ++taken == (round % 2 == 0 ? total : total / 2)) enough.set_value();
      }
      EXPECT_NE(waited[1].revents, 0);
    };
    std::vector<std::thread> running;
    for (unsigned thread = 0; thread < threads; ++thread) {
      running.emplace_back(change, YString::format("%u", thread));
      running.emplace_back(take);
    }
    EXPECT_EQ(enough.get_future().wait_for(60s), std::future_status::ready) << taken;
    stop.close();
    for (std::thread& thread : running) thread.join();

    for (bool given = true; given; taken += given) {
      const bool announced = readable(descriptor);
      given = queue.next(0ms).has_value();
      EXPECT_EQ(announced, given);
    }
    EXPECT_EQ(taken, total);
  }
}
