#include "measure.h"

#include <dlfcn.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdio>

namespace {

long _allocationsBefore = 0;

}  // namespace

bench::heap bench::heap_now() {
  const auto read = [](const char* name) {
    void* const counter = dlsym(RTLD_DEFAULT, name);
    return counter == nullptr ? 0 : reinterpret_cast<long (*)()>(counter)();
  };
  return {read("yusb_heap_allocations"), read("yusb_heap_bytes")};
}

void bench::print(const std::string& name, long value) {
  std::printf("%s %ld\n", name.c_str(), value);
  std::fflush(stdout);
}

void bench::begin_count() {
  static_cast<void>(access("/count/begin", F_OK));  // a marker in strace's output
  _allocationsBefore = heap_now().allocations;
  CALLGRIND_START_INSTRUMENTATION;
}

void bench::end_count(const std::string& name, int times) {
  CALLGRIND_STOP_INSTRUMENTATION;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  const long allocated = heap_now().allocations - _allocationsBefore;
  static_cast<void>(access(("/count/end/" + name).c_str(), F_OK));
  print("times " + name, times);
  print("allocations " + name, allocated);
}
