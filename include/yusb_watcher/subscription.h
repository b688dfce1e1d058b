// The event interface that a watcher registers. Part of <yusb_watcher.h>, which includes it.
#ifndef YUSB_WATCHER_SUBSCRIPTION_H_
#define YUSB_WATCHER_SUBSCRIPTION_H_

#include <algorithm>
#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include <yusb.h>
#include <yusb_filter.h>

namespace yusb {

namespace detail {

using subscription_callback = std::function<void(const YUsbInfoDevice&, _yusb_device_event)>;

// The event interface of a watcher. All members except `_hears` are used under the library's locks, or on the
// thread that starts or ends it, when it receives no events.
class subscription final : public yusb_device_event_interface {
 public:
  // If `removals` is true, finish() reports a removal for each device that is still attached.
  subscription(subscription_callback callback, device_filter filter, bool removals)
      : _callback(std::move(callback)), _filter(std::move(filter)), _removals(removals) {}

  void start() {
    if (!context_create(&_context)) throw std::runtime_error("yusb::watcher: not under the library's locks");
    if (_context == nullptr) throw std::bad_alloc();
    // A registration replays the list without a lock; `_hears` is still false, so that replay is dropped. The
    // context is outside the set meanwhile, so it receives no other event. Adding it to the set replays the
    // list again, under the locks that every change takes.
    if (!common_object_remove(_context) || !context_notify_object_append(_context, this)) {
      context_release(_context);
      throw std::runtime_error("yusb::watcher: the library is not initialised");
    }
    _hears = true;
    common_object_append(_context);
  }

  // False if the library refused, and therefore still refers to this object.
  bool finish() noexcept {
    _hears = false;  // context_release replays removals of all devices; _listed knows which were reported
    if (!context_release(_context)) return false;
    for (const entry& listed : _listed) {
      if (listed.told && _removals) _callback(listed.device, YUSB_DEVICE_EVENT_REMOVE);
    }
    return true;
  }

  void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
    // A removal by key that found nothing delivers a blank record.
    const bool blank = device.empty() && device.location() == YString() && device.instancePath() == YString();
    if (!_hears || blank) return;
    event == YUSB_DEVICE_EVENT_APPEND ? append(device) : remove(device);
  }

 private:
  struct entry {
    YUsbInfoDevice device;
    bool told;  // its arrival was reported, its removal was not
  };
  using iterator = std::vector<entry>::iterator;

  template <typename Condition>
  iterator find(Condition condition) {
    return std::find_if(_listed.begin(), _listed.end(), condition);
  }

  // The first record at a location that may be reported.
  iterator device_at(const YString& place) {
    if (place == YString()) return _listed.end();
    return find([&](const entry& at) { return at.device.exist() && at.device.location() == place; });
  }

  void tell_arrival(entry& arrived) {
    arrived.told = !_filter || _filter(arrived.device);
    if (arrived.told) _callback(arrived.device, YUSB_DEVICE_EVENT_APPEND);
  }

  void append(const YUsbInfoDevice& device) {
    _listed.push_back({device, false});
    const iterator last = _listed.end() - 1;
    if (device_at(last->device.location()) == last) tell_arrival(*last);
  }

  void remove(const YUsbInfoDevice& device) {
    // A removal by key delivers the record that it removed, so both keys match. A removal by record delivers
    // the caller's record and removed the first that matches either key.
    const auto location = [&](const entry& at) { return at.device.location() == device.location(); };
    const auto path = [&](const entry& at) { return at.device.instancePath() == device.instancePath(); };
    iterator removed = find([&](const entry& at) { return location(at) && path(at); });
    if (removed == _listed.end()) removed = find([&](const entry& at) { return location(at) || path(at); });
    if (removed == _listed.end()) return;
    const bool first = device_at(removed->device.location()) == removed;
    const entry gone = *removed;
    _listed.erase(removed);
    if (gone.told) _callback(gone.device, YUSB_DEVICE_EVENT_REMOVE);
    const iterator next = first ? device_at(gone.device.location()) : _listed.end();
    if (next != _listed.end()) tell_arrival(*next);
  }

  const subscription_callback _callback;
  const device_filter _filter;
  const bool _removals;
  _yusb_context* _context = nullptr;
  std::vector<entry> _listed;       // mirrors the library's list
  std::atomic<bool> _hears{false};  // cleared without a lock
};

struct finish_subscription {
  void operator()(subscription* ended) const noexcept {
    if (ended->finish()) delete ended;
  }
};

}  // namespace detail

}  // namespace yusb

#endif  // YUSB_WATCHER_SUBSCRIPTION_H_
