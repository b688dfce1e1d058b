// The log levels that a bus uses. They are cast from numbers because a host's own core library may not have
// YLog.h's names for them.
#ifndef YORVAN_PORT_BUS_LOG_H_
#define YORVAN_PORT_BUS_LOG_H_

#include <YorvanCore/YLog.h>

namespace yusb::port {

constexpr auto log_warning = static_cast<EYORVAN_LOG_LEVEL>(3);
constexpr auto log_error = static_cast<EYORVAN_LOG_LEVEL>(4);

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_LOG_H_
