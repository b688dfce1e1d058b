#include "tree.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "format/hex.h"

namespace yusb::tool {

using namespace format;

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

// The location of the hub that a device is attached to; for a root hub, its own location.
std::uint32_t hub_of(std::uint32_t location) {
  for (unsigned shift = 0; shift < 24; shift += 4) {
    if ((location >> shift & 0xF) != 0) return location & ~(0xFU << shift);
  }
  return location;
}

// The index of each device's nearest listed hub, or none.
std::vector<std::size_t> parents(const std::vector<YUsbInfoDevice>& sorted) {
  std::map<std::uint32_t, std::size_t> index_at;
  std::vector<std::size_t> result;
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    std::uint32_t location = location_number(sorted[i]);
    index_at.emplace(location, i);
    std::size_t parent = none;
    while (parent == none && hub_of(location) != location) {
      location = hub_of(location);
      const auto hub = index_at.find(location);
      if (hub != index_at.end()) parent = hub->second;
    }
    result.push_back(parent);
  }
  return result;
}

}  // namespace

std::uint32_t location_number(const YUsbInfoDevice& device) {
  const YString& text = device.location();
  return parse_hex(std::string_view(text.data(), text.size()), 8).value_or(0);
}

void sort_by_location(std::vector<YUsbInfoDevice>* devices) {
  std::stable_sort(devices->begin(), devices->end(), [](const YUsbInfoDevice& a, const YUsbInfoDevice& b) {
    return location_number(a) < location_number(b);
  });
}

std::vector<std::string> tree_branches(const std::vector<YUsbInfoDevice>& sorted) {
  const std::vector<std::size_t> parent = parents(sorted);
  std::vector<std::string> branches(sorted.size());
  std::vector<bool> has_later_sibling(sorted.size());
  std::map<std::size_t, bool> seen;  // by parent: whether the backward walk has met one of its children
  for (std::size_t i = sorted.size(); i-- > 0;) {
    has_later_sibling[i] = seen[parent[i]];
    seen[parent[i]] = true;
  }
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    if (parent[i] == none) continue;
    branches[i] = has_later_sibling[i] ? "├─" : "└─";
    for (std::size_t hub = parent[i]; parent[hub] != none; hub = parent[hub]) {
      branches[i].insert(0, has_later_sibling[hub] ? "│ " : "  ");
    }
  }
  return branches;
}

}  // namespace yusb::tool
