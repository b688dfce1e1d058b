// Converts between the structures of the C interface and those of the library.
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

// Converts a string of a record from Latin-1 to UTF-8; a zero byte becomes U+FFFD.
std::string utf8_of(std::string_view bytes);

// Converts a UTF-8 string to that of a record: the low byte of each UTF-16 code unit. Empty if it is not
// UTF-8. Null is an empty string.
std::optional<YString> record_text(const char* utf8);

// True if a string is UTF-8, or null.
inline bool is_utf8(const char* text) { return record_text(text).has_value(); }

// Copies a caller's structure of any version; it begins with its size.
template <typename Structure>
yusb_status read_structure(const Structure* given, Structure* copy) {
  constexpr std::size_t longest = 4096;  // of any version; a larger size is not initialised
  if (given->size < sizeof given->size || given->size > longest) return YUSB_INVALID_ARGUMENT;
  *copy = {};
  std::memcpy(copy, given, given->size < sizeof *copy ? given->size : sizeof *copy);
  const char* const bytes = reinterpret_cast<const char*>(given);
  for (std::size_t at = sizeof *copy; at < given->size; ++at) {
    if (bytes[at] != 0) return YUSB_UNSUPPORTED;  // a later version's member
  }
  return YUSB_OK;
}

// Copies a caller's array of structures, which all have the size of the first.
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

// A caller's copy of a record.
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

// Returns the record of a caller's device. Throws std::bad_alloc.
yusb_status read_device(const yusb_device* device, YUsbInfoDevice* record);

}  // namespace yusb::c

#endif  // YUSB_BINDINGS_C_CONVERT_H_
