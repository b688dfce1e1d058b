
#include "support.h"

using namespace yusb;

struct Classify : Library {};

std::string classes(const YUsbInfoDevice& record) {
  return std::string(device_is_apple(record) ? "apple " : "") +
         (device_is_airpods(record) ? "airpods " : "") + (device_is_android(record) ? "android " : "");
}

TEST_F(Classify, IsByVendorProductAndBrand) {
  const std::pair<const char*, std::vector<unsigned>> numbers[] = {
      {"", {0x00000000, 0x05AD1393, 0xAC059313, 0x18D20001}},
      {"apple ", {0x05AC0000, 0x05AC1392, 0x05AC139B}},
      {"apple airpods ", {0x05AC1393, 0x05AC139A}},
      {"android ", {0x27170001, 0x12D10001, 0x339B0001, 0x04E80001, 0x2D950001, 0x22D90001, 0x18D10001}}};
  for (const auto& [expected, ids] : numbers) {
    for (const unsigned id : ids) {
      const auto vendor = static_cast<unsigned short>(id >> 16), product = static_cast<unsigned short>(id);
      const YUsbInfoDevice record = make_record(vendor, product, "0xvivo", "", {"Apple", "AirPods", "vivo"});
      EXPECT_EQ(classes(record), expected) << to_string(record);
    }
  }
  for (const char* brand :
       {"HUAWEI", "Xiaomi 13", "Opposite", "Honorable", "ViVOpay", "Samsung Mobile", "iqOO z"}) {
    EXPECT_TRUE(device_is_android(make_record(0x05AC, 1, "", "", {brand, "", ""}))) << brand;
    EXPECT_TRUE(device_is_android(make_record(0x1717, 1, "", "", {"", brand, ""}))) << brand;
  }
  EXPECT_FALSE(device_is_android(make_record(1, 1, "", "", {"vi vo", "v\xEDvoactive", "samsung"})));
}

TEST_F(Classify, TraversesTheListedAirPodsOnly) {
  std::vector<unsigned short> seen;
  const auto visitor = [&seen](const YUsbInfoDevice& record) {
    seen.push_back(record.productID());
    EXPECT_TRUE(device_is_exist(nullptr, record));  // no lock is held
    return false;                                   // does not stop it
  };
  for (const unsigned short product : {0x1393, 0x1394, 0x139A})
    common_device_append(make_record(0x05AC, product, YString::format("0x%X", product)));
  EXPECT_TRUE(airpods_traverse(nullptr, visitor));
  EXPECT_EQ(seen, (std::vector<unsigned short>{0x1393, 0x139A}));
}

TEST_F(Classify, RaisesTheCaseOfAnAirPodsSerialNumber) {
  const YUsbInfoDevice pods = make_record(0x05AC, 0x1393, "0x1", nullptr, {"", "", "abc-12\xE9"});
  EXPECT_EQ(airpods_get_serial_number(pods), YString("ABC-12\xE9"));
}
