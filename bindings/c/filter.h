#ifndef YUSB_BINDINGS_C_FILTER_H_
#define YUSB_BINDINGS_C_FILTER_H_

#include <cstddef>

#include <yusb_c.h>
#include <yusb_filter.h>

namespace yusb::c {

// Returns a filter that keeps devices that pass one of a caller's `count` filters; an empty one if `count` is
// 0. Throws std::bad_alloc.
yusb_status make_filter(const yusb_filter* filters, std::size_t count, device_filter* made);

}  // namespace yusb::c

#endif  // YUSB_BINDINGS_C_FILTER_H_
