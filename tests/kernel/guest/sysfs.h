// Reads USB devices from sysfs without the library.
#ifndef KERNEL_GUEST_SYSFS_H_
#define KERNEL_GUEST_SYSFS_H_

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

inline const std::string sysfs = "/sys/bus/usb/devices/";

// The content of a file without its final newline; empty if the file does not exist.
inline std::optional<std::string> read_file(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

// "usb1", "1-2.3"; not "1-2:1.0", which is an interface. Hubs come before the devices behind them.
inline std::vector<std::string> attached_paths() {
  std::vector<std::string> result;
  for (const auto& entry : std::filesystem::directory_iterator(sysfs)) {
    const std::string path = entry.path().filename();
    if (path.find(':') == std::string::npos) result.push_back(path);
  }
  const auto ports = [](const std::string& path) {
    return std::count_if(path.begin(), path.end(), [](char c) { return c == '-' || c == '.'; });
  };
  std::sort(result.begin(), result.end(), [&](const auto& a, const auto& b) { return ports(a) < ports(b); });
  return result;
}

// The documented location: the bus, then one digit per port. Empty if a port is above 15.
inline std::string location(const std::string& path) {
  unsigned value = 0;
  unsigned number = 0;
  int shift = 24;
  for (const char c : path + '.') {
    if (std::isdigit(static_cast<unsigned char>(c))) {
      number = number * 10 + static_cast<unsigned>(c - '0');
    } else if (number != 0) {
      if (shift < 24 && number > 15) return {};
      value |= number << shift;
      shift -= 4;
      number = 0;
    }
  }
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

#endif  // KERNEL_GUEST_SYSFS_H_
