// Terminates the process if a promise does not hold; libFuzzer treats that as a crash.
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
