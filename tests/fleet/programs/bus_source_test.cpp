// What an agent publishes of a simulated bus.
#include "fleet/bus_source.h"

#include <poll.h>

#include "support.h"

using namespace std::chrono_literals;

namespace yusb::fleet {
namespace {

struct FleetBus : Library {
  // Waits for the source's next change.
  static device_change next(bus_source& source) {
    for (;;) {
      pollfd ready{source.descriptor(), POLLIN, 0};
      if (poll(&ready, 1, 30000) != 1) throw std::runtime_error("no change in 30 s");
      if (auto change = source.next()) return *change;
    }
  }
  static bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }
};

TEST_F(FleetBus, ReportsWhenADeviceCanBeOpened) {
  simulated_device phone = make_device(0x18D1, 0x4EE7, 0x01100000);
  phone.openable_after = std::nullopt;
  attach(phone);
  bus_source source({}, [] {});
  const device_change first = next(source);
  ASSERT_EQ(first.what, device_change::kind::reset);
  EXPECT_TRUE(has(first.devices.at("0x1100000"), "\"openable\":false"));
  EXPECT_TRUE(bus.open_node(id));
  EXPECT_TRUE(has(next(source).payload, "\"openable\":true"));
  bus.unplug(id);
  EXPECT_EQ(next(source).what, device_change::kind::removal);
}

}  // namespace
}  // namespace yusb::fleet
