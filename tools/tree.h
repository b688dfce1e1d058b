#ifndef YUSB_TOOLS_TREE_H_
#define YUSB_TOOLS_TREE_H_

#include <cstdint>
#include <string>
#include <vector>

#include <yusb.h>

namespace yusb::tool {

// The location ID of a record as a number; 0 if it is not one.
std::uint32_t location_number(const YUsbInfoDevice& device);

// Ascending; devices with equal locations keep their order.
void sort_by_location(std::vector<YUsbInfoDevice>* devices);

// The order of port paths in the tree of hubs; whatever is no port path comes last.
bool before_in_tree(const std::string& a, const std::string& b);

// For each port path of a list in that order, the branches that draw the tree: two columns for each ancestor
// in the list. Whatever is no port path is drawn as a root.
std::vector<std::string> tree_branches(const std::vector<std::string>& paths);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_TREE_H_
