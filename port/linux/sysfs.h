// What sysfs tells of USB devices. No privilege is needed, and no device is asked: the kernel read it all on
// arrival.
#ifndef YORVAN_PORT_LINUX_SYSFS_H_
#define YORVAN_PORT_LINUX_SYSFS_H_

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/uevent.h"
#include "linux/unique_fd.h"

namespace yusb::port {

// Where the kernel lists them.
constexpr char usb_devices_directory[] = "/sys/bus/usb/devices";

// The paths (see yusb_location.h) of all devices, in tree order. Without a USB core there are none. Empty,
// with errno set, if they cannot be listed.
std::optional<std::vector<std::string>> list_devices();

// A device descriptor's numbers and what its three strings are.
struct device_attributes {
  device_numbers numbers;

  // Manufacturer, product, serial number: the index, 0 if the device has no such string, and the text's size
  // in bytes, 0 if it is not known.
  std::array<std::uint8_t, 3> index = {};
  std::array<std::uint16_t, 3> size = {};
  std::string texts;  // one after the other, in UTF-8
};

// Tells a device from any other that was or will be at the same port: its address alone comes round again,
// and starts afresh with a host controller.
struct device_identity {
  std::uint32_t devnum = 0;  // its address on its bus; 0 if it is gone
  std::uint32_t inode = 0;   // of its directory, its low half

  bool operator==(const device_identity& other) const {
    return devnum == other.devnum && inode == other.inode;
  }
};

// One device's directory. It stays that device's: when the device is gone nothing can be read any more, even
// if another was attached at the same port since.
class sysfs_device {
 public:
  explicit sysfs_device(const std::string& path);

  // Empty if it cannot be found out, for want of descriptors say.
  std::optional<device_identity> identity() const;

  // What cannot be read stays 0 or empty. The kernel hands out no text while it configures the device: a
  // device that does not answer makes this wait as long as it makes the kernel wait, 5 seconds as a rule.
  device_attributes read_attributes() const;

  explicit operator bool() const { return static_cast<bool>(_directory); }

  // One of its files, cut at `size`: how much was read, or -1 with errno set.
  ssize_t read(const char* file, char* buffer, std::size_t size) const;

  // The whole of a file that is larger than a page, cut at `limit`; empty if it cannot be read.
  std::string read_all(const char* file, std::size_t limit) const;

  // The last part of what a link points to; empty if there is no such link. `buffer` must outlive it.
  std::string_view read_link(const char* link, char* buffer, std::size_t size) const;

 private:
  unique_fd _directory;
  int _error = 0;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_SYSFS_H_
