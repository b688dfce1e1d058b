// Recognises Android phones.
#include <cstdint>
#include <iterator>
#include <set>
#include <vector>

#include <yusb.h>

#include "classify/android_tables.h"

namespace yusb {

bool device_is_android(const YUsbInfoDevice& device) {
  // Only toLower() may throw std::bad_alloc; the tables are built in noexcept functions, so a failed
  // allocation there terminates the process.
  static const auto _staticVendorIDArray = []() noexcept {
    return std::set<std::uint16_t>(std::begin(android_vendors), std::end(android_vendors));
  }();
  if (_staticVendorIDArray.count(device.vendorID()) != 0) return true;

  const YString factory = device.factory().toLower();
  const YString describe = device.describe().toLower();
  static const auto _staticStringArray = []() noexcept {
    return std::vector<YString>(std::begin(android_brands), std::end(android_brands));
  }();
  for (const YString& brand : _staticStringArray) {
    if (factory.contains(brand) || describe.contains(brand)) return true;
  }
  return false;
}

}  // namespace yusb
