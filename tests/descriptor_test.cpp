// The descriptor of a watch queue: when it is readable, and how many system calls it costs.
#include <fcntl.h>
#include <poll.h>

#include <cerrno>
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
  return _exhausted ? (errno = EMFILE, -1) : __real_eventfd(count, flags);
}
extern "C" int __wrap_pipe(int ends[2]) { return _exhausted ? (errno = EMFILE, -1) : __real_pipe(ends); }

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

TEST_F(Descriptor, StaysReadableOnceTheQueueIsClosed) {
  watch_queue queue;
  const int descriptor = queue.descriptor();
  queue.close();
  EXPECT_TRUE(readable(descriptor));
  EXPECT_FALSE(queue.next(0ms));
  EXPECT_TRUE(readable(descriptor));
}

TEST_F(Descriptor, BelongsToTheQueueAlone) {
  const auto before = entries("/proc/self/fd");
  std::optional<watch_queue> first(std::in_place);
  const int descriptor = first->descriptor();
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  std::optional<watch_queue> second(std::move(*first));
  first.reset();
  EXPECT_EQ(second->descriptor(), descriptor);
  second.reset();
  EXPECT_EQ(entries("/proc/self/fd"), before);
}

TEST_F(Descriptor, ThatCannotBeOpenedIsAnErrorThatLeavesTheQueueWorking) {
  watch_queue queue;
  _exhausted = true;
  EXPECT_THROW(queue.descriptor(), std::system_error);
  _exhausted = false;
  append({"1"});
  EXPECT_TRUE(readable(queue.descriptor()));
}
