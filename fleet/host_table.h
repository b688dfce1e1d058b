// Hosts and their devices as lines of aligned columns, for people.
#ifndef YUSB_FLEET_HOST_TABLE_H_
#define YUSB_FLEET_HOST_TABLE_H_

#include <optional>
#include <string>
#include <vector>

#include "format/table.h"
#include "reader.h"

namespace yusb::fleet {

// A list has the columns HOST STATE PORT ID SPEED MANUFACTURER PRODUCT SERIAL WHAT. A report has the local
// time and a sign instead of the state: + for an arrival, - for a removal, * for a change, = for a host whose
// state is under WHAT.
class host_table {
 public:
  enum class kind { list, reports };

  // Fits the lines into the terminal, if standard output is one.
  explicit host_table(kind rows);

  std::string heading();
  // `device` is null in a line about the host alone. `sign` is used in reports only.
  void fit(const host& of, const shown_device* device, const char* sign) {
    _table.fit(cells(of, device, sign));
  }
  std::string line(const host& of, const shown_device* device, const char* sign) {
    return _table.line(cells(of, device, sign));
  }

 private:
  std::vector<format::cell> cells(const host& of, const shown_device* device, const char* sign) const;

  const kind _rows;
  format::table _table;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_HOST_TABLE_H_
