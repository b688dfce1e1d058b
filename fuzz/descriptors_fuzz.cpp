// Fuzzes the descriptors that a device sends.
//
// Input: the bConfigurationValue to search for, then the descriptors.
#include <array>
#include <string>
#include <vector>

#include "bus/descriptors.h"
#include "require.h"

using namespace yusb::port;

namespace {

// True if the input contains the bytes of an interface descriptor.
bool stands_in(std::string_view bytes, const interface_descriptor& found) {
  for (std::size_t at = 18; at + 9 <= bytes.size(); ++at) {
    const auto* const byte = reinterpret_cast<const std::uint8_t*>(bytes.data()) + at;
    if (byte[0] >= 9 && byte[1] == 4 && byte[2] == found.number && byte[3] == found.alternate &&
        byte[5] == found.class_code && byte[6] == found.subclass && byte[7] == found.protocol &&
        byte[8] == found.string_index)
      return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // A copy of the exact size, so that AddressSanitizer detects a read past its end.
  const std::vector<char> copy(data + 1, data + size);
  const std::string_view bytes(copy.data(), copy.size());
  require(!parse_device_descriptor(bytes).has_value() || bytes.size() >= 18, "a device descriptor is whole");

  const auto whole = find_configuration(bytes, data[0]);
  if (!whole.has_value()) return 0;
  std::array<int, 256> times = {};
  for (const interface_descriptor& each : whole->interfaces) {
    require(++times[each.number] == 1, "an interface is found once");
    require(stands_in(bytes, each), "an interface is one that was sent");
  }
  for (const std::size_t left : {bytes.size() / 2, bytes.size() - 1}) {
    const auto cut = find_configuration(bytes.substr(0, left), data[0]);
    require(!cut.has_value() || cut->interfaces.size() <= whole->interfaces.size(), "less is found in less");
  }
  const auto longer = find_configuration(std::string(bytes) + '\0', data[0]);
  require(longer.has_value() && longer->interfaces.size() >= whole->interfaces.size(),
          "what follows takes nothing away");
  return 0;
}
