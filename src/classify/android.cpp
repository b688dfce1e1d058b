// Recognising Android phones.
#include <cstdint>
#include <set>
#include <vector>

#include <yusb.h>

namespace yusb {

bool device_is_android(const YUsbInfoDevice& device) {
  // Only the lower-case copies may let a want of memory through, so the tables are built by functions that
  // may not.
  static const auto _staticVendorIDArray = []() noexcept {
    return std::set<std::uint16_t>{0x2717, 0x12D1, 0x339B, 0x04E8, 0x2D95, 0x22D9, 0x18D1};
  }();
  if (_staticVendorIDArray.count(device.vendorID()) != 0) return true;

  const YString factory = device.factory().toLower();
  const YString describe = device.describe().toLower();
  static const auto _staticStringArray = []() noexcept {
    return std::vector<YString>{"xiaomi", "huawei", "honor", "vivo", "oppo", "samsung", "iqoo"};
  }();
  for (const YString& brand : _staticStringArray) {
    if (factory.contains(brand) || describe.contains(brand)) return true;
  }
  return false;
}

}  // namespace yusb
