// The log levels that the library uses. They are cast from numbers because a host's own core library may not
// have YLog.h's names for them.
#ifndef YUSB_COMMON_LOG_H_
#define YUSB_COMMON_LOG_H_

#include <YorvanCore/YLog.h>

namespace yusb {

constexpr auto log_information = static_cast<EYORVAN_LOG_LEVEL>(1);
constexpr auto log_error = static_cast<EYORVAN_LOG_LEVEL>(4);

}  // namespace yusb

#endif  // YUSB_COMMON_LOG_H_
