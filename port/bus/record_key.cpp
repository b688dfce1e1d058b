#include "bus/record_key.h"

#include <algorithm>
#include <charconv>

#include "bus/string_descriptor.h"

namespace yusb::port {

namespace {

std::string_view view(const YString& text) { return {text.data(), text.size()}; }

// Fast path for most strings: ASCII without zeros, not too long for a descriptor. A record holds the same
// bytes.
bool is_plain(std::string_view text) {
  const auto plain = [](char c) { return static_cast<signed char>(c) > 0; };
  return text.size() <= (string_descriptor_limit - 2) / 2 && std::all_of(text.begin(), text.end(), plain);
}

std::uint32_t parse_location(std::string_view text) {
  std::uint32_t location = 0;
  if (text.substr(0, 2) != "0x") return 0;
  const char* const end = text.data() + text.size();
  const auto [after, error] = std::from_chars(text.data() + 2, end, location, 16);
  return error == std::errc() && after == end ? location : 0;
}

}  // namespace

record_key::record_key(const YUsbInfoDevice& record)
    : location(parse_location(view(record.location()))),
      vendor(record.vendorID()),
      product(record.productID()),
      release(record.revisedID()),
      manufacturer(record.factory()),
      product_name(record.describe()),
      serial_number(record.serialNumber()) {}

bool same_string(const YString& kept, const std::uint8_t* descriptor, std::size_t size) {
  const std::string_view text = view(kept);
  std::size_t length = 0;
  for (std::size_t at = 2; at < size && descriptor[at] != 0; at += 2, ++length) {
    if (length == text.size() || static_cast<std::uint8_t>(text[length]) != descriptor[at]) return false;
  }
  return length == text.size();
}

bool same_string(const YString& kept, std::string_view utf8) {
  if (is_plain(utf8)) return view(kept) == utf8;
  const string_descriptor made = encode_string_descriptor(utf8);
  return same_string(kept, made.bytes.data(), made.size);
}

std::string valid_utf8(std::string_view text) {
  if (is_plain(text)) return std::string(text);
  const string_descriptor made = encode_string_descriptor(text);
  return decode_string_descriptor(made.bytes.data(), made.size);
}

}  // namespace yusb::port
