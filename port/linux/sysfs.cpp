#include "linux/sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>

#include <yusb_location.h>

#include "bus/descriptors.h"

namespace yusb::port {

namespace {

bool is_gone(int error) { return error == ENOENT || error == ENODEV || error == ENOTDIR; }

bool is_exhausted(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

}  // namespace

std::string device_node(std::uint32_t bus, std::uint32_t devnum) {
  char node[64];
  const int size = std::snprintf(node, sizeof node, "/dev/bus/usb/%03u/%03u", bus, devnum);
  return {node, static_cast<std::size_t>(size)};
}

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
  if (_directory) return;
  _error = errno;
  if (is_exhausted(_error)) _exhausted = _error;
}

std::optional<device_identity> sysfs_device::identity() const {
  int error = _error;
  struct stat directory;
  if (_directory && fstat(_directory.get(), &directory) == 0) {
    if (const auto devnum = read_number("devnum")) {
      return device_identity{*devnum, static_cast<std::uint32_t>(directory.st_ino)};
    }
    error = errno;
  }
  return is_gone(error) ? std::optional<device_identity>(device_identity()) : std::nullopt;
}

device_attributes sysfs_device::read_attributes() const {
  device_attributes found;
  if (!_directory) return found;
  char raw[device_descriptor_size];
  const ssize_t raw_size = read("descriptors", raw, sizeof raw);
  const auto described =
      parse_device_descriptor({raw, static_cast<std::size_t>(std::max<ssize_t>(raw_size, 0))});
  if (described.has_value()) {
    found.numbers = {described->vendor, described->product, described->release};
    found.index = described->string_index;
  } else {
    const auto number = [this](const char* file) {
      return static_cast<std::uint16_t>(read_number(file, 16).value_or(0));
    };
    found.numbers = {number("idVendor"), number("idProduct"), number("bcdDevice")};
    found.index = {1, 2, 3};
  }

  static constexpr const char* files[] = {"manufacturer", "product", "serial"};
  char texts[3 * sysfs_string_limit];
  std::size_t used = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    if (found.index[i] == 0) continue;
    const std::size_t size = read_text(files[i], texts + used).value_or("").size();
    found.size[i] = static_cast<std::uint16_t>(size);
    used += size;
    if (size == 0 && !described.has_value()) found.index[i] = 0;
  }
  found.texts.assign(texts, used);
  return found;
}

ssize_t sysfs_device::read(const char* name, void* buffer, std::size_t size) const {
  const unique_fd file(openat(_directory.get(), name, O_RDONLY | O_CLOEXEC));
  if (!file) {
    if (is_exhausted(errno)) _exhausted = errno;
    return -1;
  }
  ssize_t got;
  do {
    got = ::read(file.get(), buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

std::optional<std::string_view> sysfs_device::read_text(const char* file, char* buffer) const {
  ssize_t size = read(file, buffer, sysfs_string_limit);
  if (size < 0) return std::nullopt;
  if (size > 0 && buffer[size - 1] == '\n') --size;
  return std::string_view(buffer, static_cast<std::size_t>(size));
}

std::optional<std::uint32_t> sysfs_device::read_number(const char* file, int base) const {
  char text[16];
  const ssize_t size = read(file, text, sizeof text);
  std::uint32_t number = 0;
  if (size < 0 || std::from_chars(text, text + size, number, base).ec != std::errc()) return std::nullopt;
  return number;
}

std::string sysfs_device::read_all(const char* name, std::size_t limit) const {
  std::string content;
  const unique_fd file(openat(_directory.get(), name, O_RDONLY | O_CLOEXEC));
  if (!file && is_exhausted(errno)) _exhausted = errno;
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
