// Choosing devices by what their records say. Header-only.
//
//   const auto phone = yusb::both(yusb::device_is_android, yusb::except(yusb::with_vendor(0x18D1)));
//   yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& device) {
//     if (phone(device)) show(device);
//     return true;
//   });
#ifndef YUSB_FILTER_H_
#define YUSB_FILTER_H_

#include <functional>
#include <utility>

#include <yusb.h>

namespace yusb {

// True keeps the device. yusb::device_is_apple, yusb::device_is_airpods and yusb::device_is_android are
// filters as they stand, and so is any function or lambda of this form. None of those here takes a lock,
// throws or allocates when it is asked, but those three, whose rules are in yusb.h; making one may throw
// std::bad_alloc. A filter may be asked on several threads at once if all that it is made of may.
using device_filter = std::function<bool(const YUsbInfoDevice&)>;

// By idVendor, or by idVendor and idProduct.
inline device_filter with_vendor(unsigned short vendor) {
  return [=](const YUsbInfoDevice& device) { return device.vendorID() == vendor; };
}
inline device_filter with_id(unsigned short vendor, unsigned short product) {
  return [=](const YUsbInfoDevice& device) {
    return device.vendorID() == vendor && device.productID() == product;
  };
}

// By the whole text, byte for byte.
inline device_filter with_serial_number(const YString& text) {
  return [text](const YUsbInfoDevice& device) { return device.serialNumber() == text; };
}
inline device_filter with_location(const YString& text) {
  return [text](const YUsbInfoDevice& device) { return device.location() == text; };
}

// Combinations. `second` is asked only where it matters. A filter that is combined must not be empty: asking
// the combination would throw std::bad_function_call.
inline device_filter both(device_filter first, device_filter second) {
  return [first = std::move(first), second = std::move(second)](const YUsbInfoDevice& device) {
    return first(device) && second(device);
  };
}
inline device_filter either(device_filter first, device_filter second) {
  return [first = std::move(first), second = std::move(second)](const YUsbInfoDevice& device) {
    return first(device) || second(device);
  };
}
inline device_filter except(device_filter filter) {
  return [filter = std::move(filter)](const YUsbInfoDevice& device) { return !filter(device); };
}

}  // namespace yusb

#endif  // YUSB_FILTER_H_
