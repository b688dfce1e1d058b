// Locations and port paths.
#include <yusb_location.h>

#include <map>

#include "support.h"

namespace yusb::port {
namespace {

TEST(Location, IsTheBusAndADigitAPort) {
  const std::map<const char*, std::uint32_t> exact = {{"usb1", 0x01000000},          {"1-2.3", 0x01230000},
                                                      {"255-15", 0xFFF00000},        {"20-1.10", 0x141A0000},
                                                      {"1-2.3.4.5.6.7", 0x01234567}, {"usb255", 0xFF000000}};
  for (const auto& [path, location] : exact) EXPECT_EQ(location_of_path(path), location) << path;
}

TEST(Location, IsAHashWhereAPortOrABusDoesNotFit) {
  for (const char* const path : {"1-16", "1-2.31", "1-1.1.1.1.1.1.1", "256-1", "usb256", "usb4096"}) {
    const std::uint32_t location = location_of_path(path).value();  // differs from every path that fits
    EXPECT_EQ(location & 0xFFF00000, bus_of_path(path) == 1 ? 0x01000000u : 0u) << path;
    EXPECT_NE(location & 0x000FFFFF, 0u) << path;
  }
  EXPECT_EQ(next_location(0x010FFFFF), 0x01000001u) << "not that of the root hub";
}

}  // namespace
}  // namespace yusb::port
