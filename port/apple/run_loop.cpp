// The run loop: one poll of a few descriptors, so that it does not wake while nothing happens.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "apple/call_hook.h"
#include "apple/core_foundation.h"
#include "apple/misuse.h"

struct __CFRunLoop : yusb::port::cf_object {
  __CFRunLoop() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~__CFRunLoop() override {
    if (wake >= 0) close(wake);
  }

  const int wake;  // readable after a stop; -1 if out of descriptors
  std::mutex mutex;
  bool running = false;                     // under mutex
  bool stopped = false;                     // under mutex
  std::vector<CFRunLoopSourceRef> sources;  // the loop's own thread only
  yusb::port::instance_counter counter{yusb::port::object_kind::run_loop};

  bool enter() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (sources.empty()) return false;
    running = true;
    stopped = false;
    return true;
  }
  bool is_stopped() {
    const std::lock_guard<std::mutex> lock(mutex);
    return stopped;
  }
  void leave() {
    const std::lock_guard<std::mutex> lock(mutex);
    running = false;
  }
};

namespace {

struct thread_loop {
  CFRunLoopRef loop = new __CFRunLoop();
  ~thread_loop() { CFRelease(loop); }
};

// Handles everything that is pending. False if it was stopped first.
bool perform_all(CFRunLoopRef loop) {
  for (const CFRunLoopSourceRef source : loop->sources) {
    do {
      if (loop->is_stopped()) return false;
    } while (source->perform());
  }
  return !loop->is_stopped();
}

void wait(CFRunLoopRef loop) {
  std::vector<pollfd> waited = {{loop->wake, POLLIN, 0}};
  for (const CFRunLoopSourceRef source : loop->sources) {
    source->idle();
    for (const int fd : source->poll_fds()) waited.push_back({fd, POLLIN, 0});
  }
  // Without a descriptor a stop cannot wake the loop, which therefore looks for one every 10 ms.
  const int limit = loop->wake < 0 ? 10 : -1;
  poll(waited.data(), waited.size(), limit);  // EINTR only causes one more round
  eventfd_t count;
  if ((waited.front().revents & POLLIN) != 0) eventfd_read(loop->wake, &count);
}

}  // namespace

void yusb::port::invalidate(CFRunLoopSourceRef source) {
  auto& sources = CFRunLoopGetCurrent()->sources;
  sources.erase(std::remove(sources.begin(), sources.end(), source), sources.end());
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  thread_local thread_loop current;
  return current.loop;
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFStringRef /*mode*/) {
  yusb::port::before_call("CFRunLoopAddSource");
  if (source == nullptr) yusb::port::misuse("CFRunLoopAddSource() called with a null source");
  rl->sources.push_back(source);
}

void CFRunLoopRun(void) {
  yusb::port::before_call("CFRunLoopRun");
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  if (!loop->enter()) return;
  while (perform_all(loop)) wait(loop);
  loop->leave();
}

void CFRunLoopStop(CFRunLoopRef rl) {
  yusb::port::before_call("CFRunLoopStop");
  const std::lock_guard<std::mutex> lock(rl->mutex);
  if (!rl->running) return;
  rl->stopped = true;
  eventfd_write(rl->wake, 1);
}
