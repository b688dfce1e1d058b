// client [SECONDS]: prints the attached Android phones after each change, and ends when nothing has changed
// for SECONDS (default: 10).
#include <cstdio>
#include <cstdlib>

#include <YorvanCore/YLog.h>

#include "phone_shelf.h"

int main(int argc, char** argv) {
  const std::chrono::seconds limit(argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10);
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);  // the default logs each arrival
  yusb::global_initialize();
  {
    phone_shelf shelf;
    while (shelf.update(limit)) {
      std::printf("%zu on the shelf:", shelf.phones().size());
      for (const auto& [location, phone] : shelf.phones()) {
        std::printf(" %s at %s", phone.serialNumber().data(), location.data());
      }
      std::printf("\n");
      std::fflush(stdout);
    }
  }
  yusb::global_release();
}
