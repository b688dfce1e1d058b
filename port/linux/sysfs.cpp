#include "linux/sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>

#include <yusb_location.h>

namespace yusb::port {

namespace {

constexpr std::size_t device_descriptor_size = 18;  // USB 2.0 section 9.6.1
constexpr std::size_t text_limit = 512;             // 126 UTF-16 units are at most 378 bytes of UTF-8

bool is_gone(int error) { return error == ENOENT || error == ENODEV || error == ENOTDIR; }

// Reads a file. Returns its size, or -1 with errno set.
ssize_t read_file(int directory, const char* name, void* buffer, std::size_t size) {
  const unique_fd file(openat(directory, name, O_RDONLY | O_CLOEXEC));
  if (!file) return -1;
  ssize_t got;
  do {
    got = read(file.get(), buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

std::optional<std::uint32_t> read_number(int directory, const char* name, int base) {
  char text[16];
  const ssize_t size = read_file(directory, name, text, sizeof text);
  std::uint32_t number = 0;
  if (size < 0 || std::from_chars(text, text + size, number, base).ec != std::errc()) return std::nullopt;
  return number;
}

std::uint16_t little_endian(const std::uint8_t* at) { return static_cast<std::uint16_t>(at[0] | at[1] << 8); }

}  // namespace

std::optional<std::vector<std::string>> list_devices() {
  std::vector<std::string> paths;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(usb_devices_directory), closedir);
  if (directory == nullptr) {
    if (!is_gone(errno)) return std::nullopt;
    return paths;
  }
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) break;
    if (is_port_path(entry->d_name)) paths.emplace_back(entry->d_name);
  }
  if (errno != 0) return std::nullopt;
  std::sort(paths.begin(), paths.end(), port_path_before);
  return paths;
}

sysfs_device::sysfs_device(const std::string& path) {
  char name[256];
  if (sizeof usb_devices_directory + path.size() >= sizeof name) {
    _error = ENOENT;
    return;
  }
  char* end = std::copy_n(usb_devices_directory, sizeof usb_devices_directory - 1, name);
  *end++ = '/';
  *std::copy(path.begin(), path.end(), end) = '\0';
  _directory = unique_fd(open(name, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!_directory) _error = errno;
}

std::optional<device_identity> sysfs_device::identity() const {
  int error = _error;
  struct stat directory;
  if (_directory && fstat(_directory.get(), &directory) == 0) {
    if (const auto devnum = read_number(_directory.get(), "devnum", 10)) {
      return device_identity{*devnum, static_cast<std::uint32_t>(directory.st_ino)};
    }
    error = errno;
  }
  return is_gone(error) ? std::optional<device_identity>(device_identity()) : std::nullopt;
}

device_attributes sysfs_device::read_attributes() const {
  device_attributes found;
  if (!_directory) return found;
  const int directory = _directory.get();
  std::uint8_t raw[device_descriptor_size];
  const bool described = read_file(directory, "descriptors", raw, sizeof raw) == sizeof raw;
  if (described) {
    found.numbers = {little_endian(raw + 8), little_endian(raw + 10), little_endian(raw + 12)};
    found.index = {raw[14], raw[15], raw[16]};
  } else {
    const auto number = [&](const char* name) {
      return static_cast<std::uint16_t>(read_number(directory, name, 16).value_or(0));
    };
    found.numbers = {number("idVendor"), number("idProduct"), number("bcdDevice")};
    found.index = {1, 2, 3};
  }

  static constexpr const char* files[] = {"manufacturer", "product", "serial"};
  char texts[3 * text_limit];
  std::size_t used = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    if (found.index[i] == 0) continue;
    ssize_t size = read_file(directory, files[i], texts + used, text_limit);
    if (size > 0 && texts[used + static_cast<std::size_t>(size) - 1] == '\n')
      --size;  // appended by the kernel
    if (size > 0) {
      found.size[i] = static_cast<std::uint16_t>(size);
      used += found.size[i];
    } else if (!described) {
      found.index[i] = 0;
    }
  }
  found.texts.assign(texts, used);
  return found;
}

ssize_t sysfs_device::read(const char* file, char* buffer, std::size_t size) const {
  return read_file(_directory.get(), file, buffer, size);
}

std::string sysfs_device::read_all(const char* name, std::size_t limit) const {
  std::string content;
  const unique_fd file(openat(_directory.get(), name, O_RDONLY | O_CLOEXEC));
  while (file && content.size() < limit) {
    char page[4096];
    const ssize_t got = ::read(file.get(), page, std::min(sizeof page, limit - content.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    content.append(page, static_cast<std::size_t>(got));
  }
  return content;
}

std::string_view sysfs_device::read_link(const char* link, char* buffer, std::size_t size) const {
  const ssize_t got = readlinkat(_directory.get(), link, buffer, size);
  if (got <= 0) return {};
  const std::string_view target(buffer, static_cast<std::size_t>(got));
  return target.substr(target.rfind('/') + 1);
}

}  // namespace yusb::port
