// Recognises Apple devices and AirPods.
#include <cstdint>
#include <set>

#include <yusb.h>

#include "common/reentry.h"

namespace yusb {

bool device_is_apple(const YUsbInfoDevice& device) noexcept {
  static const std::set<std::uint16_t> _staticVendorIDArray = {0x05AC};
  return _staticVendorIDArray.count(device.vendorID()) != 0;
}

bool device_is_airpods(const YUsbInfoDevice& device) noexcept {
  if (!device_is_apple(device)) return false;
  static const std::set<std::uint16_t> _staticProductIDArray = {0x1393, 0x139A};
  return _staticProductIDArray.count(device.productID()) != 0;
}

bool airpods_traverse(_yusb_context* ctx, const device_visitor& visitor) noexcept {
  if (reject_reentry()) return false;
  if (!visitor) return true;
  device_traverse(ctx, [&visitor](const YUsbInfoDevice& listed) {
    if (device_is_airpods(listed)) visitor(listed);
    return true;
  });
  return true;
}

YString airpods_get_serial_number(const YUsbInfoDevice& device) { return device.serialNumber().toUpper(); }

bool device_reset_apple() noexcept { return platform_reset_apple(); }

}  // namespace yusb
