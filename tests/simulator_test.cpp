// The simulated bus by itself.
#include "bus/bus.h"
#include "support.h"

namespace yusb::port {
namespace {

TEST(Simulator, HasNotSettledWhileAChangeWaits) {
  simulator bus;
  const auto session = current_bus().open();
  bus.plug({});
  session->idle();
  EXPECT_FALSE(bus.settle(std::chrono::milliseconds(0)));
  EXPECT_TRUE(session->next().has_value());
  session->idle();
  EXPECT_TRUE(bus.settle(std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace yusb::port
