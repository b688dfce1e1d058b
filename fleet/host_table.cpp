#include "host_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "format/time.h"
#include "format/utf8.h"

namespace yusb::fleet {

namespace {

std::vector<format::column> columns(host_table::kind rows) {
  std::vector<format::column> made;
  if (rows == host_table::kind::reports) made = {{"TIME", 12, 12, 5}, {"", 1, 1, 9}};
  made.push_back({"HOST", 8, 8, 10});
  if (rows == host_table::kind::list) made.push_back({"STATE", 6, 6, 8});
  made.insert(made.end(), {{"PORT", 5, 5, 7},
                           {"ID", 9, 9, 6},
                           {"SPEED", 5, 5, 1},
                           {"MANUFACTURER", 12, 8, 2},
                           {"PRODUCT", 16, 10, 4},
                           {"SERIAL", 12, 8, 3},
                           {"WHAT", 4, 4, 0}});
  return made;
}

format::cell cell(const std::string& text) { return {text.empty() ? "-" : format::visible(text)}; }

std::string age(format::time_point since) {
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - since).count();
  if (seconds < 60) return std::to_string(std::max<long long>(seconds, 0)) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m";
  return seconds < 86400 * 2 ? std::to_string(seconds / 3600) + "h" : std::to_string(seconds / 86400) + "d";
}

std::string state_text(const host& of) {
  const bool silent = of.state == host_state::offline || of.state == host_state::stale;
  return to_string(of.state) + (silent ? " " + age(of.last_sign()) : std::string());
}

std::string joined(const std::vector<std::string>& words) {
  std::string made;
  for (const std::string& each : words) made += (made.empty() ? "" : ",") + each;
  return made;
}

}  // namespace

host_table::host_table(kind rows) : _rows(rows), _table(columns(rows)) {
  winsize size{};
  if (isatty(STDOUT_FILENO) == 0) return;
  _table.set_limit(ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80);
}

std::string host_table::heading() { return _table.line(_table.headings("")); }

std::vector<format::cell> host_table::cells(const host& of, const shown_device* device,
                                            const char* sign) const {
  const bool list = _rows == kind::list;
  std::vector<format::cell> made;
  if (!list) made = {{format::local_time(std::chrono::system_clock::now())}, {sign}};
  made.push_back(cell(of.name));
  if (list) made.push_back({state_text(of)});
  if (device == nullptr) {
    for (int i = 0; i < 6; ++i) made.push_back({"-"});
    made.push_back({list ? "-" : to_string(of.state)});
    return made;
  }
  const format::known_device& known = device->device;
  for (const std::string& text :
       {format::port_path(known), format::device_id_text(known.record),
        format::speed_text(known.details->speed), format::manufacturer(known), format::product_name(known),
        format::serial_number(known), joined(format::tags(known))}) {
    made.push_back(cell(text));
  }
  return made;
}

}  // namespace yusb::fleet
