#include "table.h"

#include <algorithm>
#include <numeric>

#include "utf8.h"

namespace yusb::format {

namespace {

constexpr std::size_t widest = 40;  // of a column, in cells
constexpr std::size_t gap = 2;      // between columns

// The cells of a line whose columns have these widths; a column of width 0 is left out.
std::size_t total(const std::vector<std::size_t>& widths) {
  std::size_t sum = 0;
  for (const std::size_t each : widths) sum += each == 0 ? 0 : each + gap;
  return sum == 0 ? 0 : sum - gap;
}

}  // namespace

void table::fit(const std::vector<cell>& cells) {
  for (std::size_t i = 0; i < _columns.size(); ++i) {
    const std::size_t needed = width(cells[i].text);
    if (_limit || needed <= widest) _columns[i].width = std::max(_columns[i].width, needed);
  }
}

// The width of each column, 0 for one that is left out.
std::vector<std::size_t> table::layout() const {
  std::vector<std::size_t> widths;
  for (const column& each : _columns)
    widths.push_back(_limit ? std::min(each.width, each.least) : each.width);
  if (!_limit) return widths;

  std::vector<std::size_t> order(_columns.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(),
            [this](auto a, auto b) { return _columns[a].importance < _columns[b].importance; });
  for (std::size_t i = 0; i + 1 < order.size() && total(widths) > *_limit; ++i) widths[order[i]] = 0;
  widths[order.back()] = std::min(widths[order.back()], std::max<std::size_t>(*_limit, 1));

  // What is left goes to the columns that lack the least, so that as many as possible are whole.
  for (std::size_t left = *_limit - std::min(*_limit, total(widths)); left > 0;) {
    std::optional<std::size_t> nearest;
    const auto lack = [&](std::size_t i) { return _columns[i].width - widths[i]; };
    for (const std::size_t i : order) {
      if (widths[i] != 0 && lack(i) > 0 && (!nearest || lack(i) <= lack(*nearest))) nearest = i;
    }
    if (!nearest) break;
    const std::size_t given = std::min(left, lack(*nearest));
    widths[*nearest] += given;
    left -= given;
  }
  return widths;
}

std::string table::line(const std::vector<cell>& cells) {
  fit(cells);
  const std::vector<std::size_t> widths = layout();
  std::string out;
  std::size_t blanks = 0;  // before the next cell
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (widths[i] == 0) continue;
    const std::string text = _limit ? cut(cells[i].text, widths[i]) : cells[i].text;
    const bool coloured = *cells[i].colour != '\0';
    out.append(blanks, ' ');
    out += coloured ? cells[i].colour + text + "\033[0m" : text;
    blanks = gap + widths[i] - std::min(widths[i], width(text));
  }
  return out + "\n";
}

std::vector<cell> table::headings(const char* colour) const {
  std::vector<cell> cells;
  for (const column& each : _columns) cells.push_back({each.heading, colour});
  return cells;
}

}  // namespace yusb::format
