// client [SECONDS]: shows the Android phones that are attached, each time this changes, until nothing has
// changed for so many seconds, 10 unless said otherwise.
#include <cstdio>
#include <cstdlib>

#include <YorvanCore/YLog.h>

#include "phone_shelf.h"

int main(int argc, char** argv) {
  const std::chrono::seconds limit(argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10);
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);  // else it reports each arrival
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
