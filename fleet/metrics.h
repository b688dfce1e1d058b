// The picture in the text format of Prometheus.
#ifndef YUSB_FLEET_METRICS_H_
#define YUSB_FLEET_METRICS_H_

#include <map>
#include <string>

#include "reader.h"

namespace yusb::fleet {

std::string metrics_text(const std::map<std::string, host>& hosts);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_METRICS_H_
