// USB devices in sysfs. Reading needs no privileges and does not access the device: the kernel has read all
// of it when the device was attached.
#ifndef YORVAN_PORT_LINUX_SYSFS_H_
#define YORVAN_PORT_LINUX_SYSFS_H_

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "linux/uevent.h"
#include "linux/unique_fd.h"

namespace yusb::port {

// The folder in which the kernel lists the devices.
constexpr char usb_devices_directory[] = "/sys/bus/usb/devices";

constexpr std::size_t sysfs_string_limit = 512;  // 126 UTF-16 units are at most 378 bytes of UTF-8

// Returns the device's node, "/dev/bus/usb/001/005", whether it exists or not.
std::string device_node(std::uint32_t bus, std::uint32_t devnum);

// Returns the paths (see yusb_location.h) of all devices, in tree order; none if the kernel has no USB core.
// The optional is empty, with errno set, if they cannot be listed.
std::optional<std::vector<std::string>> list_devices();

// The numbers of a device descriptor, and its three strings.
struct device_attributes {
  device_numbers numbers;

  // Of manufacturer, product and serial number: the string index, 0 if the device has no such string, and the
  // size of the string in bytes, 0 if it is not known.
  std::array<std::uint8_t, 3> index = {};
  std::array<std::uint16_t, 3> size = {};
  std::string texts;  // the known strings, concatenated, in UTF-8
};

// Identifies one attachment. The address alone does not: addresses wrap, and restart when the host controller
// does.
struct device_identity {
  std::uint32_t devnum = 0;  // address on its bus; 0 if the device is gone
  std::uint32_t inode = 0;   // of its directory, the low 32 bits

  bool operator==(const device_identity& other) const {
    return devnum == other.devnum && inode == other.inode;
  }
};

// The directory of one device. After the device is gone, nothing can be read, even if another device was
// attached to the same port.
class sysfs_device {
 public:
  explicit sysfs_device(const std::string& path);

  // Empty if it cannot be read, for instance when out of file descriptors.
  std::optional<device_identity> identity() const;

  // Values that cannot be read stay 0 or empty. The kernel does not return strings while it configures the
  // device: a device that does not answer blocks this for as long as it blocks the kernel, typically 5
  // seconds.
  device_attributes read_attributes() const;

  explicit operator bool() const { return static_cast<bool>(_directory); }

  // Not 0 if something could not be read because the process or the system is out of descriptors or memory.
  std::error_code exhausted() const { return {_exhausted, std::generic_category()}; }

  // Reads one file, truncated to `size`. Returns the number of bytes, or -1 with errno set.
  ssize_t read(const char* file, void* buffer, std::size_t size) const;

  // Reads a string into a buffer of sysfs_string_limit bytes, which must outlive it; without the newline that
  // the kernel appends. Empty if the file cannot be read.
  std::optional<std::string_view> read_text(const char* file, char* buffer) const;

  // Empty if the file cannot be read or has no number.
  std::optional<std::uint32_t> read_number(const char* file, int base = 10) const;

  // Reads a file that may be larger than a page, truncated to `limit`. Empty if it cannot be read.
  std::string read_all(const char* file, std::size_t limit) const;

  // Returns the last component of a link's target; empty if there is no such link. `buffer` must outlive it.
  std::string_view read_link(const char* link, char* buffer, std::size_t size) const;

 private:
  unique_fd _directory;
  int _error = 0;
  mutable int _exhausted = 0;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_SYSFS_H_
