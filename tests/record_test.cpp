// The record of a device, as a value.
#include "support.h"

using namespace yusb;

TEST(Record, ExistsIfOneOfItsNumbersIsNotZero) {
  YUsbInfoDevice numberless = make_record(0, 0, "location", "path", {"factory", "describe", "serial"});
  numberless.setRevisedID(0);
  EXPECT_TRUE(numberless.empty());
  EXPECT_FALSE(numberless.exist());
  for (const auto set :
       {&YUsbInfoDevice::setVendorID, &YUsbInfoDevice::setProductID, &YUsbInfoDevice::setRevisedID}) {
    YUsbInfoDevice one;
    (one.*set)(1);
    EXPECT_TRUE(one.exist());
  }
}

TEST(Record, EqualsAnyWithItsLocation) {
  const YUsbInfoDevice record = make_record(1, 2, "location", "path");
  EXPECT_EQ(make_record(3, 4, "location", "other"), record);
  EXPECT_NE(make_record(1, 2, "other", "path"), record);
}

TEST(Record, IsCopiedWhole) {
  const YUsbInfoDevice whole = make_record(1, 2, "location", "path", {"factory", "describe", "serial"});
  YUsbInfoDevice assigned;
  assigned = whole;
  YUsbInfoDevice& alias = assigned;
  assigned = alias;
  const YUsbInfoDevice copied(assigned);
  assigned.setFactory("changed");
  for (const YUsbInfoDevice& each : {copied, whole})
    EXPECT_EQ(to_string(each), "0001:0002 0100 location path factory describe serial");
}
