// Details, modes and the filters that read the bus, on a simulated bus.
#include <yusb_details.h>
#include <yusb_location.h>

#include "support.h"

using namespace yusb;

struct Details : Library {
  static simulated_device phone() {
    simulated_device made = make_device(0x18D1, 0x4EE7, 0x01230000);
    made.manufacturer = "Gööögle";
    made.product_name = "Pixel \xF0\x9F\x98\x80";
    made.serial_number = "0A1B";
    made.speed = 5000;
    made.interfaces = {{0, 0x06, 0x01, 0x01, "MTP", ""}, {1, 0xFF, 0x42, 0x01, "ADB Interface", "usbfs"}};
    return made;
  }
};

TEST_F(Details, AreTheDescriptionOfTheDeviceThatTheRecordIsOf) {
  const YUsbInfoDevice record = attach(phone());
  const auto found = device_details(record);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(std::tie(found->port_path, found->bus, found->speed, found->manufacturer, found->product_name),
            std::tuple("1-2.3", 1u, 5000.0, "Gööögle", "Pixel \xF0\x9F\x98\x80"));
  EXPECT_EQ(found->interfaces.size(), 2u);
  YUsbInfoDevice other = record;
  other.setSerialNumber("0A1C");
  EXPECT_FALSE(device_details(other).has_value());

  ASSERT_TRUE(bus.unplug(id));
  EXPECT_FALSE(device_details(record).has_value());
  simulated_device successor = phone();
  successor.product = 0x4EE0;
  EXPECT_TRUE(device_details(attach(successor)).has_value());
  EXPECT_FALSE(device_details(record).has_value()) << "another device at the same port";
}

TEST_F(Details, AgreeWithARecordWhoseStringsTheDeviceGarbled) {
  simulated_device garbled = phone();
  garbled.replies[2].bytes = {8, 3, 'P', 0, 0x00, 0xD8, 'x', 0x4E, 'y'};
  garbled.replies[3].status = 1;
  garbled.failing = {simulated_number::release, simulated_number::manufacturer_index};
  const auto found = device_details(attach(garbled));
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(std::tie(found->manufacturer, found->product_name, found->serial_number),
            std::tuple("", "P\xE4\xB9\xB8", ""))
      << "without the lone surrogate";
  garbled.replies[2].bytes.assign(300, 'x');
  EXPECT_TRUE(device_details(attach(garbled)).has_value()) << "a reply longer than what the library asks for";
}

TEST_F(Details, FiltersChooseByWhatIsAttachedNow) {
  const YUsbInfoDevice record = attach(phone());
  const std::pair<device_filter, bool> expected[] = {
      {with_class(0xFF), true},
      {with_interface(0xFF, 0x42, 0x01), true},
      {with_interface(0xFF, 0x42, 0x03), false},
      {with_mode(device_mode::adb), true},
      {with_port("1-2.3"), true},
      {with_port("1-2"), false},
      {with_name("ÖÖG"), false},
      {with_name("öögLE"), true},
      {both(with_mode(device_mode::mtp), except(with_class(0xFF))), false},
  };
  for (const auto& [filter, kept] : expected) EXPECT_EQ(filter(record), kept) << &filter - &expected[0].first;
  bus.unplug(id);
  EXPECT_FALSE(with_port("1-2.3")(record));
  EXPECT_TRUE(except(with_port("1-2.3"))(record));
}
