// String descriptors: USB 2.0 section 9.6.7.
#ifndef YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_
#define YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace yusb::port {

// Two header bytes and at most 126 UTF-16 units: bLength is one byte, and even.
constexpr std::size_t string_descriptor_limit = 254;

struct string_descriptor {
  std::array<std::uint8_t, string_descriptor_limit> bytes;
  std::size_t size;
};

// The descriptor that a device would send for a UTF-8 text, cut where it is full, never inside a pair of
// surrogates. A byte that is not part of valid UTF-8 becomes U+FFFD.
string_descriptor encode_string_descriptor(std::string_view utf8);

// The text of a descriptor, in UTF-8, as the kernel reads it: up to the first zero unit, without lone
// surrogates. `size` is what the device sent, whatever the descriptor claims. Throws std::bad_alloc.
std::string decode_string_descriptor(const std::uint8_t* bytes, std::size_t size);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_
