#include <atomic>
#include <thread>

#include "support.h"

namespace {

struct expectation {
  unsigned short vendor, product;
  const char *factory, *describe, *serial_number;
  bool apple, airpods, android;
};

YUsbInfoDevice record_of(const expectation& e) {
  YUsbInfoDevice record = make_record(e.vendor, e.product, "0xvivo");
  record.setFactory(e.factory);
  record.setDescribe(e.describe);
  record.setSerialNumber(e.serial_number);
  return record;
}

const expectation kExpectations[] = {
    {0x0000, 0x0000, "", "", "", false, false, false},
    {0x05AC, 0x0000, "", "", "", true, false, false},
    {0x05AC, 0x1393, "", "", "", true, true, false},
    {0x05AC, 0x139A, "", "", "", true, true, false},
    {0x05AC, 0x1392, "", "AirPods", "", true, false, false},
    {0x05AC, 0x139B, "", "AirPods", "", true, false, false},
    {0x05AD, 0x1393, "Apple", "AirPods", "", false, false, false},
    {0xAC05, 0x9313, "", "", "", false, false, false},
    {0x05AC, 0x12A8, "Apple", "honor", "", true, false, true},
    {0x2717, 0x0001, "", "", "", false, false, true},
    {0x12D1, 0x0001, "", "", "", false, false, true},
    {0x339B, 0x0001, "", "", "", false, false, true},
    {0x04E8, 0x0001, "", "", "", false, false, true},
    {0x2D95, 0x0001, "", "", "", false, false, true},
    {0x22D9, 0x0001, "", "", "", false, false, true},
    {0x18D1, 0x0001, "Acme", "Widget", "", false, false, true},
    {0x18D2, 0x0001, "Acme", "Widget", "", false, false, false},
    {0x1717, 0x0001, "HUAWEI", "", "", false, false, true},
    {0x1717, 0x0001, "", "Xiaomi 13", "", false, false, true},
    {0x1717, 0x0001, "", "Opposite", "", false, false, true},
    {0x1717, 0x0001, "Honorable", "", "", false, false, true},
    {0x1717, 0x0001, "", "ViVOpay", "", false, false, true},
    {0x1717, 0x0001, "Samsung Mobile", "", "", false, false, true},
    {0x1717, 0x0001, "iqOO z", "", "", false, false, true},
    {0x1717, 0x0001, "vi vo", "v\xEDvoactive", "samsung", false, false, false},
    {0x1717, 0x0001, "viv", "o", "", false, false, false},
};

}  // namespace

TEST(Classification, GoesByNumbersAndBrandWords) {
  for (const expectation& e : kExpectations) {
    SCOPED_TRACE(testing::Message() << std::hex << e.vendor << ":" << e.product << " " << e.factory << "|"
                                    << e.describe);
    const YUsbInfoDevice record = record_of(e);
    EXPECT_EQ(yusb::device_is_apple(record), e.apple);
    EXPECT_EQ(yusb::device_is_airpods(record), e.airpods);
    EXPECT_EQ(yusb::device_is_android(record), e.android);
  }
}

TEST(Classification, IsRightFromTheFirstCallOnEveryThread) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&wrong] {
      for (const expectation& e : kExpectations) {
        const YUsbInfoDevice record = record_of(e);
        wrong += yusb::device_is_airpods(record) != e.airpods || yusb::device_is_android(record) != e.android;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(Classification, RaisesTheCaseOfAnySerialNumber) {
  EXPECT_EQ(yusb::airpods_get_serial_number(record_of({1, 2, "", "", "abc-12\xE9", false, false, false})),
            YString("ABC-12\xE9"));
  EXPECT_EQ(yusb::airpods_get_serial_number(YUsbInfoDevice()), YString());
}

TEST_F(Library, WalksTheListedAirPodsToTheEnd) {
  strings seen;
  const auto visitor = [&seen](const YUsbInfoDevice& record) {
    seen.emplace_back(record.location().data());
    EXPECT_TRUE(yusb::device_is_exist(nullptr, record));  // no lock is held
    return false;
  };
  EXPECT_TRUE(yusb::airpods_traverse(context, visitor));
  EXPECT_EQ(seen, strings());
  yusb::common_device_append(make_record(0x05AC, 0x1393, "0x1"));
  yusb::common_device_append(make_record(0x05AC, 0x1394, "0x2"));
  yusb::common_device_append(make_record(0x05AC, 0x139A, "0x3"));
  EXPECT_TRUE(yusb::airpods_traverse(nullptr, visitor));
  EXPECT_EQ(seen, (strings{"0x1", "0x3"}));
  EXPECT_TRUE(yusb::airpods_traverse(nullptr, nullptr));
  EXPECT_FALSE(yusb::device_reset_apple());
  EXPECT_EQ(listed().size(), 3u);
}
