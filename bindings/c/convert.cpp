#include "convert.h"

#include <cstdint>

namespace yusb::c {

namespace {

// Removes the first code point from `text`. False if `text` does not begin with well-formed UTF-8.
bool take_code_point(std::string_view& text, std::uint32_t* code_point) {
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
  const std::uint8_t first = byte(0);
  const std::size_t size = first < 0x80       ? 1
                           : first >> 5 == 6  ? 2
                           : first >> 4 == 14 ? 3
                           : first >> 3 == 30 ? 4
                                              : 0;
  if (size == 0 || size > text.size()) return false;
  std::uint32_t value = size == 1 ? first : first & (0x7Fu >> size);
  for (std::size_t at = 1; at < size; ++at) {
    if (byte(at) >> 6 != 2) return false;
    value = value << 6 | (byte(at) & 0x3Fu);
  }
  constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < least[size] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) return false;
  text.remove_prefix(size);
  *code_point = value;
  return true;
}

void append_utf8(std::string& out, std::string_view bytes) {
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte == 0) {
      out += "\xEF\xBF\xBD";
    } else if (byte < 0x80) {
      out += c;
    } else {
      out += static_cast<char>(0xC0 | byte >> 6);
      out += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
}

}  // namespace

std::string utf8_of(std::string_view bytes) {
  std::string text;
  append_utf8(text, bytes);
  return text;
}

std::optional<YString> record_text(const char* utf8) {
  std::string bytes;
  std::string_view rest = utf8 == nullptr ? "" : utf8;
  while (!rest.empty()) {
    std::uint32_t point = 0;
    if (!take_code_point(rest, &point)) return std::nullopt;
    if (point >= 0x10000) bytes += static_cast<char>((point - 0x10000) >> 10);
    bytes += static_cast<char>(point);
  }
  return YString(bytes.data(), bytes.size());
}

device_copy::device_copy(const YUsbInfoDevice& record) : yusb_device{} {
  size = sizeof(yusb_device);
  vendor = record.vendorID();
  product = record.productID();
  release = record.revisedID();
  if (device_is_apple(record)) tags |= YUSB_APPLE;
  if (device_is_airpods(record)) tags |= YUSB_AIRPODS;
  if (device_is_android(record)) tags |= YUSB_ANDROID;

  const YString* const texts[] = {&record.location(), &record.factory(), &record.describe(),
                                  &record.serialNumber()};
  std::size_t starts[4];
  for (std::size_t i = 0; i < 4; ++i) {
    starts[i] = _texts.size();
    append_utf8(_texts, {texts[i]->data(), texts[i]->size()});
    _texts += '\0';
  }
  location = _texts.data() + starts[0];
  manufacturer = _texts.data() + starts[1];
  product_name = _texts.data() + starts[2];
  serial_number = _texts.data() + starts[3];
}

device_list_copy::device_list_copy(const std::vector<YUsbInfoDevice>& records) : yusb_device_list{} {
  _pointers.reserve(records.size());
  for (const YUsbInfoDevice& record : records) _pointers.push_back(&_devices.emplace_back(record));
  size = sizeof(yusb_device_list);
  count = _pointers.size();
  devices = _pointers.data();
}

yusb_status read_device(const yusb_device* device, YUsbInfoDevice* record) {
  if (device == nullptr) return YUSB_INVALID_ARGUMENT;
  yusb_device given;
  if (const yusb_status status = read_structure(device, &given)) return status;
  const auto location = record_text(given.location), manufacturer = record_text(given.manufacturer),
             product_name = record_text(given.product_name), serial_number = record_text(given.serial_number);
  if (!location || !manufacturer || !product_name || !serial_number) return YUSB_INVALID_ARGUMENT;
  record->setVendorID(given.vendor);
  record->setProductID(given.product);
  record->setRevisedID(given.release);
  record->setLocation(*location);
  record->setInstancePath(*location);
  record->setFactory(*manufacturer);
  record->setDescribe(*product_name);
  record->setSerialNumber(*serial_number);
  return YUSB_OK;
}

}  // namespace yusb::c
