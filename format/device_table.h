// Devices and events as lines of aligned columns, for people.
#ifndef YUSB_FORMAT_DEVICE_TABLE_H_
#define YUSB_FORMAT_DEVICE_TABLE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "format/known_device.h"
#include "format/table.h"

namespace yusb::format {

// A list of devices has the columns
//
//   PORT  LOCATION  ID  SPEED  MANUFACTURER  PRODUCT  SERIAL  WHAT
//
// An event has two more before them: the local time, and + for an arrival, - for a removal, * for a device
// that can be opened now, ! for one that could not be opened in time. What a device lacks is shown as "-".
class device_table {
 public:
  enum class kind { list, events };

  device_table(kind rows, bool coloured);

  // As table::set_limit.
  void set_limit(std::optional<std::size_t> limit) { _table.set_limit(limit); }

  // Of a list.
  std::string heading();

  // As table::fit and table::line. `branch`, the lines of a tree, precedes the port.
  void fit(const event& event, const std::string& branch = "") { _table.fit(cells_of(event, branch)); }
  std::string line(const event& event, const std::string& branch = "") {
    return _table.line(cells_of(event, branch));
  }

 private:
  std::vector<cell> cells_of(const event& event, const std::string& branch) const;

  const kind _rows;
  const bool _coloured;
  table _table;
};

}  // namespace yusb::format

#endif  // YUSB_FORMAT_DEVICE_TABLE_H_
