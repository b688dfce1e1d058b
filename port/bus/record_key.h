// Compares records with devices.
#ifndef YORVAN_PORT_BUS_RECORD_KEY_H_
#define YORVAN_PORT_BUS_RECORD_KEY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <yusb.h>

namespace yusb::port {

// The content of a record. This library cannot copy records themselves: their class is in libYorvanUsb.
struct record_key {
  explicit record_key(const YUsbInfoDevice& record);

  std::uint32_t location;  // 0 if it has none
  std::uint16_t vendor, product, release;
  YString manufacturer, product_name, serial_number;
};

// True if `kept`, the string of a record, is from this string descriptor: the low byte of each code unit, up
// to the first 0 byte.
bool same_string(const YString& kept, const std::uint8_t* descriptor, std::size_t size);

// The same for a UTF-8 string, truncated to the length that a descriptor can hold.
bool same_string(const YString& kept, std::string_view utf8);

// Returns a copy in valid UTF-8, in which each invalid byte becomes U+FFFD, truncated like a descriptor.
std::string valid_utf8(std::string_view text);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_RECORD_KEY_H_
