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

// For each device of a sorted list, the branches that draw the tree of hubs: two columns for each ancestor.
// The parent of a device is the nearest hub in the list on the path from its root hub: the top byte of a
// location is the bus, each hexadecimal digit after it the port on one more hub.
std::vector<std::string> tree_branches(const std::vector<YUsbInfoDevice>& sorted);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_TREE_H_
