// Detected misuse of Apple's functions.
#ifndef YORVAN_PORT_APPLE_MISUSE_H_
#define YORVAN_PORT_APPLE_MISUSE_H_

#include <cstdio>
#include <cstdlib>

namespace yusb::port {

// Terminates the process with a line that states the reason, as Apple's frameworks do on the same misuse.
[[noreturn]] inline void misuse(const char* what) {
  std::fprintf(stderr, "YorvanUsb: %s\n", what);
  std::abort();
}

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_MISUSE_H_
