#include "device_table.h"

#include <limits>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "utf8.h"

namespace yusb::format {

namespace {

constexpr std::size_t never_cut = std::numeric_limits<std::size_t>::max();

constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* dim = "\033[2m";
constexpr const char* bold = "\033[1m";

std::vector<column> columns_of(device_table::kind rows) {
  std::vector<column> columns;
  if (rows == device_table::kind::events) columns = {{"TIME", 12, never_cut, 4}, {"", 1, never_cut, 9}};
  const column of_device[] = {
      {"PORT", 6, never_cut, 10},  {"LOCATION", 9, never_cut, 1},
      {"ID", 9, never_cut, 8},     {"SPEED", 5, never_cut, 2},
      {"MANUFACTURER", 12, 11, 3}, {"PRODUCT", 16, 14, 7},
      {"SERIAL", 12, 12, 6},       {"WHAT", 7, 11, 5},
  };
  columns.insert(columns.end(), std::begin(of_device), std::end(of_device));
  return columns;
}

cell sign_of(event_kind kind) {
  switch (kind) {
    case event_kind::arrival:
      return {"+", green};
    case event_kind::removal:
      return {"-", red};
    case event_kind::openable:
      return {"*", green};
    case event_kind::not_openable:
      return {"!", red};
  }
  return {};
}

std::string shown(const std::string& text) { return text.empty() ? "-" : visible(text); }

}  // namespace

device_table::device_table(kind rows, bool coloured)
    : _rows(rows), _coloured(coloured), _table(columns_of(rows)) {}

std::string device_table::heading() { return _table.line(_table.headings(_coloured ? bold : "")); }

std::vector<cell> device_table::cells_of(const event& event, const std::string& branch) const {
  const known_device& device = event.device;
  std::vector<cell> cells;
  if (_rows == kind::events) cells = {{local_time(event.when), dim}, sign_of(event.kind)};
  cells.push_back({branch + shown(port_path(device))});
  cells.push_back({shown(utf8(device.record.location()))});
  cells.push_back({device_id_text(device.record), bold});
  cells.push_back({shown(device.details ? speed_text(device.details->speed) : std::string())});
  cells.push_back({shown(manufacturer(device))});
  cells.push_back({shown(product_name(device))});
  cells.push_back({shown(serial_number(device))});
  cells.push_back({shown(fmt::format("{}", fmt::join(tags(device), ",")))});
  for (cell& each : cells) each.colour = _coloured ? each.colour : "";
  return cells;
}

}  // namespace yusb::format
