#include "tree.h"

#include <algorithm>
#include <map>
#include <string_view>

#include <yusb_location.h>

#include "format/hex.h"

namespace yusb::tool {

using namespace format;

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

// The index of each path's nearest hub in the list, or none.
std::vector<std::size_t> parents(const std::vector<std::string>& paths) {
  std::vector<std::size_t> result(paths.size(), none);
  std::vector<std::size_t> hubs;  // on the way to the current path
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (!is_port_path(paths[i])) continue;
    while (!hubs.empty() &&
           (paths[hubs.back()] == paths[i] || !port_path_within(paths[i], paths[hubs.back()])))
      hubs.pop_back();
    if (!hubs.empty()) result[i] = hubs.back();
    hubs.push_back(i);
  }
  return result;
}

}  // namespace

bool before_in_tree(const std::string& a, const std::string& b) {
  if (is_port_path(a) && is_port_path(b)) return port_path_before(a, b);
  return is_port_path(a) && !is_port_path(b);
}

std::uint32_t location_number(const YUsbInfoDevice& device) {
  const YString& text = device.location();
  return parse_hex(std::string_view(text.data(), text.size()), 8).value_or(0);
}

void sort_by_location(std::vector<YUsbInfoDevice>* devices) {
  std::stable_sort(devices->begin(), devices->end(), [](const YUsbInfoDevice& a, const YUsbInfoDevice& b) {
    return location_number(a) < location_number(b);
  });
}

std::vector<std::string> tree_branches(const std::vector<std::string>& paths) {
  const std::vector<std::size_t> parent = parents(paths);
  std::vector<std::string> branches(paths.size());
  std::vector<bool> has_later_sibling(paths.size());
  std::map<std::size_t, bool> seen;  // by parent: whether the backward walk has met one of its children
  for (std::size_t i = paths.size(); i-- > 0;) {
    has_later_sibling[i] = seen[parent[i]];
    seen[parent[i]] = true;
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (parent[i] == none) continue;
    branches[i] = has_later_sibling[i] ? "├─" : "└─";
    for (std::size_t hub = parent[i]; parent[hub] != none; hub = parent[hub]) {
      branches[i].insert(0, has_later_sibling[hub] ? "│ " : "  ");
    }
  }
  return branches;
}

}  // namespace yusb::tool
