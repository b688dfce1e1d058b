// Encodes and decodes string descriptors: USB 2.0 section 9.6.7.
#ifndef YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_
#define YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace yusb::port {

// Two header bytes and at most 126 UTF-16 code units: bLength is one byte, and its value is even.
constexpr std::size_t string_descriptor_limit = 254;

struct string_descriptor {
  std::array<std::uint8_t, string_descriptor_limit> bytes;
  std::size_t size;
};

// Returns the descriptor that a device would send for a UTF-8 string, truncated if it is full, but never
// inside a surrogate pair. Each invalid byte becomes U+FFFD.
string_descriptor encode_string_descriptor(std::string_view utf8);

// Returns the string of a descriptor in UTF-8, as the kernel decodes it: up to the first zero code unit,
// without lone surrogates. `size` is the number of bytes that the device sent, whatever bLength is. Throws
// std::bad_alloc.
std::string decode_string_descriptor(const std::uint8_t* bytes, std::size_t size);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_STRING_DESCRIPTOR_H_
