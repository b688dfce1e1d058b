// Whether a record is of a given device: what the library keeps of a device's location and strings.
#ifndef YORVAN_PORT_BUS_RECORD_KEY_H_
#define YORVAN_PORT_BUS_RECORD_KEY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <yusb.h>

namespace yusb::port {

// What a record says. Records themselves cannot be copied here: their class is libYorvanUsb's.
struct record_key {
  explicit record_key(const YUsbInfoDevice& record);

  std::uint32_t location;  // 0 if it has none
  std::uint16_t vendor, product, release;
  YString manufacturer, product_name, serial_number;
};

// True if `kept` is what a record keeps of a string descriptor: the low byte of each unit, up to the first
// that is 0.
bool same_string(const YString& kept, const std::uint8_t* descriptor, std::size_t size);

// The same for a text; one that is longer than a descriptor can hold is cut.
bool same_string(const YString& kept, std::string_view utf8);

// A copy in valid UTF-8: a byte that is not part of it becomes U+FFFD. Cut as a descriptor is.
std::string valid_utf8(std::string_view text);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_RECORD_KEY_H_
