// Lines of aligned columns that fit a terminal.
#ifndef YUSB_FORMAT_TABLE_H_
#define YUSB_FORMAT_TABLE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace yusb::format {

struct cell {
  std::string text;
  const char* colour = "";  // the control sequence that switches it on
};

struct column {
  const char* heading;
  std::size_t width;  // in cells, to begin with
  std::size_t least;  // the column is narrowed to this width before another one is left out
  int importance;     // different for each column; the least important column is left out first
};

// Columns widen to fit their cells, but, without a limit, one of more than 40 terminal cells shifts only its
// own line.
//
// With a limit no line occupies more cells than that: columns are left out, least important first, until the
// others fit, at their least widths at worst; what is wider than its column ends in an ellipsis. Without a
// limit nothing is left out or cut.
class table {
 public:
  explicit table(std::vector<column> columns) : _columns(std::move(columns)) {}

  // The number of cells in a line of the terminal, for the lines to come.
  void set_limit(std::optional<std::size_t> limit) { _limit = limit; }

  // Widens the columns for a line without making it. Call it for every line before the first line(), so that
  // all lines align.
  void fit(const std::vector<cell>& cells);

  // The line, with its line end. One cell for each column.
  std::string line(const std::vector<cell>& cells);

  std::vector<cell> headings(const char* colour) const;

 private:
  std::vector<std::size_t> layout() const;

  std::vector<column> _columns;
  std::optional<std::size_t> _limit;
};

}  // namespace yusb::format

#endif  // YUSB_FORMAT_TABLE_H_
