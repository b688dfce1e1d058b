// The parser of uevents.
#include "linux/uevent.h"

#include "support.h"

namespace yusb::port {
namespace {

// Parses the kernel's uevent of a device with additional fields; the last field with a name counts.
std::optional<uevent> parsed(const strings& more) {
  constexpr char start[] =
      "add@/1-2\0ACTION=add\0DEVPATH=/usb1/1-2\0SUBSYSTEM=usb\0DEVTYPE=usb_device\0DEVNUM=012";
  std::string datagram(start, sizeof start - 1);
  for (const std::string& field : more) datagram += '\0' + field;
  return parse_uevent(datagram);
}

TEST(Uevent, ReportsADeviceThatComesOrGoes) {
  EXPECT_TRUE(parsed({"", "=", "ACTION=add"}).value().added);
  const uevent event = parsed({"PRODUCT=5ac/1393/100", "ACTION=remove"}).value();
  const auto [vendor, product, release] = event.numbers;
  EXPECT_EQ(std::tie(event.added, event.path, event.devnum, vendor, product, release),
            std::tuple(false, "1-2", 12u, 0x05AC, 0x1393, 0x0100));
}

TEST(Uevent, IsIgnoredUnlessItConcernsADevice) {
  for (const char* const field :
       {"ACTION=", "ACTION=bind", "DEVTYPE=", "DEVTYPE=usb_interface", "SUBSYSTEM=", "SUBSYSTEM=usbmon",
        "DEVNUM=", "DEVNUM=0", "DEVNUM=-1", "DEVNUM=99999999999", "DEVNUM=2x", "DEVPATH=/1-2/1-2:1.0",
        "DEVPATH=/", "DEVPATH="})
    EXPECT_FALSE(parsed({field}).has_value()) << field;
  for (const char* const cut : {"", "add@/1-2", "ACTION=add"}) EXPECT_FALSE(parse_uevent(cut).has_value());
}

TEST(Uevent, HasNoNumbersIfTheyAreMalformed) {
  for (const std::string product : {"5ac/1", "5ac/1/2/3", "10000/1/1", "//", ""})
    EXPECT_EQ(parsed({"PRODUCT=" + product}).value().numbers.vendor, 0) << product;
}

}  // namespace
}  // namespace yusb::port
