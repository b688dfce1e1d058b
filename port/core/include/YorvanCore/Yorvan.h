#ifndef YORVANCORE_YORVAN_H_
#define YORVANCORE_YORVAN_H_

#include <YorvanCore/YString.h>

namespace Yorvan {

// Sleeps the calling thread for at least `milliseconds`.
YORVANCORE_EXPORT void msleep(unsigned milliseconds) noexcept;

}  // namespace Yorvan

#endif  // YORVANCORE_YORVAN_H_
