// The commands that print what is attached: list and show.
#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <yusb_bus.h>
#include <yusb_openable.h>

#include "commands.h"
#include "format/device_table.h"
#include "format/json.h"
#include "format/show.h"
#include "output.h"
#include "tree.h"

namespace yusb::tool {

using namespace format;

namespace {

// How long to wait for the first enumeration; each unresponsive device delays it by seconds.
constexpr std::chrono::seconds enumeration_limit(30);
// When to say what the program waits for.
constexpr std::chrono::seconds notice_after(3);

// False if not all devices could be read in time.
bool enumerate() {
  if (bus_settle(notice_after)) return true;
  complain("waiting for a device that does not answer");
  return bus_settle(enumeration_limit - notice_after);
}

int finished(bool complete, const output& out) {
  if (!out.check()) return exit_failure;
  if (complete) return exit_ok;
  complain("not all devices could be read within 30 s; --log may show the reason");
  return exit_failure;
}

// The selected devices, by location.
std::vector<event> attached(const filter& selects) {
  std::vector<YUsbInfoDevice> records;
  device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
    records.push_back(record);
    return true;
  });
  sort_by_location(&records);
  const time_point now = std::chrono::system_clock::now();
  std::vector<event> found;
  for (const YUsbInfoDevice& record : records) {
    const known_device device = look_up(record);
    if (!selects || selects(device)) found.push_back({now, event_kind::arrival, device, true});
  }
  return found;
}

std::string table_of(std::vector<event> devices, bool tree) {
  std::vector<std::string> branches(devices.size());
  if (tree) {
    std::stable_sort(devices.begin(), devices.end(), [](const event& a, const event& b) {
      return before_in_tree(port_path(a.device), port_path(b.device));
    });
    std::vector<std::string> paths;
    for (const event& each : devices) paths.push_back(port_path(each.device));
    branches = tree_branches(paths);
  }
  device_table table(device_table::kind::list, coloured_output());
  table.set_limit(terminal_width());
  for (std::size_t i = 0; i < devices.size(); ++i) table.fit(devices[i], branches[i]);
  std::string text = table.heading();
  for (std::size_t i = 0; i < devices.size(); ++i) text += table.line(devices[i], branches[i]);
  return text;
}

std::string json_of(const std::vector<event>& devices) {
  std::string text;
  for (const event& each : devices) text += json_line(each);
  return text;
}

}  // namespace

int list(const options& chosen) {
  const bool complete = enumerate();
  const std::vector<event> devices = attached(chosen.filter);
  output out;
  out.write(chosen.json ? json_of(devices) : table_of(devices, chosen.tree));
  return finished(complete, out);
}

int show(const options& chosen) {
  const bool complete = enumerate();
  const std::vector<event> devices = attached(chosen.filter);
  std::string text;
  for (const event& each : devices) {
    const bool openable =
        wait_openable(each.device.record, std::chrono::milliseconds(0)) == openability::openable;
    if (chosen.json) {
      text += json_line(each, openable);
    } else {
      text += (text.empty() ? "" : "\n") + description(each.device, openable);
    }
  }
  output out;
  out.write(text);
  const int status = finished(complete, out);
  if (status != exit_ok || !devices.empty()) return status;
  complain("no such device is attached");
  return exit_failure;
}

}  // namespace yusb::tool
