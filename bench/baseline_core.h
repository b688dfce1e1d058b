// The baseline of the library's core: the same work in the simplest code, with the same records and locks.
#ifndef YUSB_BENCH_BASELINE_CORE_H_
#define YUSB_BENCH_BASELINE_CORE_H_

#include <mutex>
#include <set>
#include <vector>

#include <yusb.h>

namespace bench {

struct baseline_context {
  std::mutex mutex;
  std::set<yusb_device_event_interface*> interfaces;
};

// Its functions are in another source than their callers, like the library's.
class baseline_core {
 public:
  void open(baseline_context* opened) { _contexts.insert(opened); }

  void append(const YUsbInfoDevice& record);
  void remove(const YUsbInfoDevice& record);
  bool is_listed(const YUsbInfoDevice& record);
  void walk(const yusb::device_visitor& visitor);

 private:
  std::vector<YUsbInfoDevice>::iterator find(const YUsbInfoDevice& record);
  void deliver(const YUsbInfoDevice& record, _yusb_device_event event);

  std::mutex _contextsMutex;
  std::set<baseline_context*> _contexts;
  std::mutex _devicesMutex;
  std::vector<YUsbInfoDevice> _devices;
};

bool baseline_is_android(const YUsbInfoDevice& device);

}  // namespace bench

#endif  // YUSB_BENCH_BASELINE_CORE_H_
