#ifndef YUSB_TOOLS_TREE_H_
#define YUSB_TOOLS_TREE_H_

#include <cstdint>
#include <string>
#include <vector>

#include <yusb.h>

namespace yusb::tool {

// The location as a number; 0 if it is none.
std::uint32_t location_of(const YUsbInfoDevice& device);

// By location; devices with the same one keep their order.
void sort_by_location(std::vector<YUsbInfoDevice>* devices);

// What stands before each device of a sorted list to draw the tree of hubs: two columns for each device it is
// behind. A device is behind the nearest one attached on its path; the bus is the top byte of a location, the
// port on each hub one hexadecimal digit after it.
std::vector<std::string> tree_branches(const std::vector<YUsbInfoDevice>& sorted);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_TREE_H_
