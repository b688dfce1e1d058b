// The structures of the C interface and what the library has instead.
#ifndef YUSB_BINDINGS_C_CONVERT_H_
#define YUSB_BINDINGS_C_CONVERT_H_

#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <yusb.h>
#include <yusb_c.h>

namespace yusb::c {

// The bytes of a record as UTF-8. Each is the Latin-1 character with that number; a zero becomes U+FFFD.
std::string utf8_of(std::string_view bytes);

// What a record holds of a text: the low byte of each UTF-16 unit. Empty if the text is not UTF-8. Null is an
// empty text.
std::optional<YString> record_text(const char* utf8);

// Copies a caller's structure, of any version, which begins with its size.
template <typename Structure>
yusb_status read_structure(const Structure* given, Structure* copy) {
  if (given->size < sizeof given->size) return YUSB_INVALID_ARGUMENT;
  *copy = {};
  std::memcpy(copy, given, given->size < sizeof *copy ? given->size : sizeof *copy);
  const char* const bytes = reinterpret_cast<const char*>(given);
  for (std::size_t at = sizeof *copy; at < given->size; ++at) {
    if (bytes[at] != 0) return YUSB_UNSUPPORTED;  // a later version's member
  }
  return YUSB_OK;
}

// Copies a caller's array of structures, all of the size that the first has.
template <typename Structure>
yusb_status read_structures(const Structure* given, std::size_t count, std::vector<Structure>* copies) {
  if (given == nullptr && count != 0) return YUSB_INVALID_ARGUMENT;
  copies->resize(count);
  const char* at = reinterpret_cast<const char*>(given);
  for (Structure& copy : *copies) {
    const auto* const each = reinterpret_cast<const Structure*>(at);
    if (each->size != given->size) return YUSB_INVALID_ARGUMENT;
    if (const yusb_status status = read_structure(each, &copy)) return status;
    at += given->size;
  }
  return YUSB_OK;
}

// A record for the caller.
class device_copy : public yusb_device {
 public:
  explicit device_copy(const YUsbInfoDevice& record);
  device_copy(const device_copy&) = delete;
  device_copy& operator=(const device_copy&) = delete;

 private:
  std::string _texts;
};

class device_list_copy : public yusb_device_list {
 public:
  explicit device_list_copy(const std::vector<YUsbInfoDevice>& records);
  device_list_copy(const device_list_copy&) = delete;
  device_list_copy& operator=(const device_list_copy&) = delete;

 private:
  std::deque<device_copy> _devices;
  std::vector<const yusb_device*> _pointers;
};

// The record that a caller's device is a copy of. Throws std::bad_alloc.
yusb_status read_device(const yusb_device* device, YUsbInfoDevice* record);

}  // namespace yusb::c

#endif  // YUSB_BINDINGS_C_CONVERT_H_
