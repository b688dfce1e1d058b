// What a fuzzer does with a broken promise: it ends the process, which libFuzzer takes for a crash.
#ifndef YUSB_FUZZ_REQUIRE_H_
#define YUSB_FUZZ_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

inline void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

#endif  // YUSB_FUZZ_REQUIRE_H_
