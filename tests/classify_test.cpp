
#include "support.h"

using namespace yusb;

std::string kinds(const YUsbInfoDevice& record) {
  return std::string(device_is_apple(record) ? "apple " : "") +
         (device_is_airpods(record) ? "airpods " : "") + (device_is_android(record) ? "android " : "");
}

void expect_right_kinds() {
  const std::pair<const char*, std::vector<unsigned>> numbers[] = {
      {"", {0x00000000, 0x05AD1393, 0xAC059313, 0x18D20001}},
      {"apple ", {0x05AC0000, 0x05AC1392, 0x05AC139B}},
      {"apple airpods ", {0x05AC1393, 0x05AC139A}},
      {"android ", {0x27170001, 0x12D10001, 0x339B0001, 0x04E80001, 0x2D950001, 0x22D90001, 0x18D10001}}};
  for (const auto& [expected, ids] : numbers) {
    for (const unsigned id : ids) {
      const auto vendor = static_cast<unsigned short>(id >> 16), product = static_cast<unsigned short>(id);
      const YUsbInfoDevice record = make_record(vendor, product, "0xvivo", "", {"Apple", "AirPods", "vivo"});
      EXPECT_EQ(kinds(record), expected) << shown(record);
    }
  }
  for (const char* brand :
       {"HUAWEI", "Xiaomi 13", "Opposite", "Honorable", "ViVOpay", "Samsung Mobile", "iqOO z"}) {
    EXPECT_TRUE(device_is_android(make_record(0x05AC, 1, "", "", {brand, "", ""}))) << brand;
    EXPECT_TRUE(device_is_android(make_record(0x1717, 1, "", "", {"", brand, ""}))) << brand;
  }
  EXPECT_FALSE(device_is_android(make_record(1, 1, "", "", {"vi vo", "v\xEDvoactive", "samsung"})));
  EXPECT_FALSE(device_is_android(make_record(1, 1, "", "", {"viv", "o", ""})));
}

TEST(Classification, GoesByNumbersAndBrandWordsFromTheFirstCallOnEveryThread) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(expect_right_kinds);
  for (std::thread& thread : threads) thread.join();
}

TEST_F(Library, WalksTheListedAirPodsToTheEndAndRaisesTheCaseOfASerialNumber) {
  std::string seen;
  const auto visitor = [&seen](const YUsbInfoDevice& record) {
    seen += airpods_get_serial_number(record).data();
    EXPECT_TRUE(device_is_exist(nullptr, record));  // no lock is held
    return false;
  };
  EXPECT_TRUE(airpods_traverse(context, visitor));
  EXPECT_EQ(seen, "");
  common_device_append(make_record(0x05AC, 0x1393, "0x1", nullptr, {"", "", "abc-12\xE9"}));
  common_device_append(make_record(0x05AC, 0x1394, "0x2", nullptr, {"", "", "none"}));
  common_device_append(make_record(0x05AC, 0x139A, "0x3", nullptr, {"", "", "xyz"}));
  EXPECT_TRUE(airpods_traverse(nullptr, visitor));
  EXPECT_EQ(seen, "ABC-12\xE9XYZ");
  EXPECT_TRUE(airpods_traverse(nullptr, nullptr));
  EXPECT_FALSE(device_reset_apple());
}
