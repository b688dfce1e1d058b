// Filters: they select devices by their records. Header-only.
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

// Returns true to keep the device. yusb::device_is_apple, yusb::device_is_airpods and yusb::device_is_android
// are filters, and so is any function or lambda of this form. When called, the filters of this file do not
// lock, allocate or throw; the rules of those three functions are in yusb.h. Creating a filter may throw
// std::bad_alloc. A combined filter is thread-safe if its parts are.
using device_filter = std::function<bool(const YUsbInfoDevice&)>;

// Keeps devices with this idVendor.
inline device_filter with_vendor(unsigned short vendor) {
  return [=](const YUsbInfoDevice& device) { return device.vendorID() == vendor; };
}
// Keeps devices with this idVendor and idProduct.
inline device_filter with_id(unsigned short vendor, unsigned short product) {
  return [=](const YUsbInfoDevice& device) {
    return device.vendorID() == vendor && device.productID() == product;
  };
}

// Keeps devices with this serial number. It compares whole strings, byte by byte.
inline device_filter with_serial_number(const YString& text) {
  return [text](const YUsbInfoDevice& device) { return device.serialNumber() == text; };
}
// Keeps the device at this location. It compares whole strings, byte by byte.
inline device_filter with_location(const YString& text) {
  return [text](const YUsbInfoDevice& device) { return device.location() == text; };
}

// Keeps devices that both filters keep; calls `second` only if `first` keeps the device. The parts must not
// be empty: the combination would throw std::bad_function_call.
inline device_filter both(device_filter first, device_filter second) {
  return [first = std::move(first), second = std::move(second)](const YUsbInfoDevice& device) {
    return first(device) && second(device);
  };
}
// Keeps devices that either filter keeps; calls `second` only if `first` does not. The parts must not be
// empty.
inline device_filter either(device_filter first, device_filter second) {
  return [first = std::move(first), second = std::move(second)](const YUsbInfoDevice& device) {
    return first(device) || second(device);
  };
}
// Keeps devices that the filter does not keep. It must not be empty.
inline device_filter except(device_filter filter) {
  return [filter = std::move(filter)](const YUsbInfoDevice& device) { return !filter(device); };
}

}  // namespace yusb

#endif  // YUSB_FILTER_H_
