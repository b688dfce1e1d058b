// Fuzzes the parser of scenarios.
#include <algorithm>
#include <set>
#include <string>

#include "format/utf8.h"
#include "require.h"
#include "scenario.h"

using namespace yusb::format;
using namespace yusb::tool;

namespace {

bool is_utf8(std::string_view text) {
  char32_t code_point = 0;
  while (!text.empty()) {
    if (!take_code_point(text, &code_point)) return false;
  }
  return true;
}

void check(const scenario& read) {
  std::set<std::uint32_t> locations;
  std::set<std::size_t> attached;
  std::size_t arrived = 0;
  for (const step& each : read.steps) {
    require(each.duration.count() >= 0, "no wait is negative");
    if (each.what == step::wait) continue;
    require(each.device < read.devices.size(), "a step is about a device that there is");
    const std::uint32_t location = read.devices[each.device].location;
    if (each.what == step::attach) {
      require(each.device == arrived++, "each device arrives once, in order");
      require(location != 0 && locations.insert(location).second,
              "attached devices have locations of their own");
      attached.insert(each.device);
    } else {
      require(attached.erase(each.device) == 1 && locations.erase(location) == 1, "what leaves was attached");
    }
  }
  require(arrived == read.devices.size(), "every device arrives");
  require(read.opening() <= read.steps.size(), "the opening is a part");
  for (const scenario_device& device : read.devices) {
    for (const auto* text : {&device.manufacturer, &device.product_name, &device.serial_number})
      require(!text->has_value() || is_utf8(**text), "strings are UTF-8");
    require(device.interfaces.size() <= 32, "a device has as many interfaces as USB allows");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  const std::optional<scenario> read = parse_scenario(text, "name", &error);
  require(read.has_value() == error.empty(), "either a scenario or an error");
  if (read.has_value()) check(*read);
  require(error.empty() || error.compare(0, 5, "name:") == 0, "an error tells where");
  require(visible(error) == error, "an error may be shown on a terminal");
  return 0;
}
