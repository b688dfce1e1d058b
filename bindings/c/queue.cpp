#include <list>
#include <memory>
#include <mutex>

#include <yusb_watcher.h>

#include "convert.h"
#include "filter.h"
#include "life.h"

using namespace yusb::c;

struct yusb_queue {
  yusb_queue(yusb::device_filter filter, std::size_t capacity, yusb::watch_end end)
      : events(std::move(filter), capacity, end) {}

  const use used;  // destroyed after the other members
  yusb::watch_queue events;
  std::mutex mutex;
  std::list<yusb::watch_event> returned;  // under mutex; taken events whose copies could not be allocated
};

namespace {

class event_copy : public yusb_event {
 public:
  explicit event_copy(const yusb::watch_event& event) : yusb_event{} {
    size = sizeof(yusb_event);
    switch (event.kind) {
      case yusb::watch_kind::arrival:
        kind = YUSB_ARRIVAL;
        break;
      case yusb::watch_kind::removal:
        kind = YUSB_REMOVAL;
        break;
      case yusb::watch_kind::resync:
        kind = YUSB_RESYNC;
        break;
    }
    if (kind == YUSB_RESYNC) {
      devices = &_devices.emplace(event.devices);
    } else {
      device = &_device.emplace(event.device);
    }
  }
  event_copy(const event_copy&) = delete;
  event_copy& operator=(const event_copy&) = delete;

 private:
  std::optional<device_copy> _device;
  std::optional<device_list_copy> _devices;
};

}  // namespace

yusb_status yusb_queue_open(const yusb_queue_options* options, yusb_queue** queue) {
  if (queue == nullptr) return YUSB_INVALID_ARGUMENT;
  *queue = nullptr;
  return without_exceptions([&] {
    yusb_queue_options chosen = {};
    if (options != nullptr) {
      if (const yusb_status status = read_structure(options, &chosen)) return status;
    }
    yusb::device_filter filter;
    if (const yusb_status status = make_filter(chosen.filters, chosen.filter_count, &filter)) return status;
    const use used;
    if (used.status() != YUSB_OK) return used.status();
    *queue = new yusb_queue(std::move(filter), chosen.capacity == 0 ? 1024 : chosen.capacity,
                            chosen.removals_at_close ? yusb::watch_end::removals : yusb::watch_end::silent);
    return YUSB_OK;
  });
}

yusb_status yusb_queue_next(yusb_queue* queue, std::int64_t limit, yusb_event** event) {
  if (event == nullptr) return YUSB_INVALID_ARGUMENT;
  *event = nullptr;
  if (queue == nullptr) return YUSB_INVALID_ARGUMENT;
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    std::list<yusb::watch_event> taken;
    {
      const std::lock_guard<std::mutex> lock(queue->mutex);
      if (!queue->returned.empty()) taken.splice(taken.end(), queue->returned, queue->returned.begin());
    }
    if (taken.empty()) {
      taken.emplace_back();  // before the event is taken, so that it can be returned without an allocation
      auto next = queue->events.next(limit_of(limit));
      if (!next) return queue->events.closed() ? YUSB_CLOSED : YUSB_TIMED_OUT;
      taken.front() = std::move(*next);
    }
    try {
      *event = new event_copy(taken.front());
    } catch (const std::bad_alloc&) {
      const std::lock_guard<std::mutex> lock(queue->mutex);
      queue->returned.splice(queue->returned.end(), taken);
      throw;
    }
    return YUSB_OK;
  });
}

yusb_status yusb_event_free(yusb_event* event) {
  delete static_cast<event_copy*>(event);
  return YUSB_OK;
}

yusb_status yusb_queue_descriptor(yusb_queue* queue, int* descriptor) {
  if (descriptor == nullptr) return YUSB_INVALID_ARGUMENT;
  *descriptor = -1;
  if (queue == nullptr) return YUSB_INVALID_ARGUMENT;
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    *descriptor = queue->events.descriptor();
    return YUSB_OK;
  });
}

yusb_status yusb_queue_close(yusb_queue* queue) {
  if (queue == nullptr) return YUSB_INVALID_ARGUMENT;
  if (const yusb_status status = may_wait()) return status;
  queue->events.close();
  return YUSB_OK;
}

yusb_status yusb_queue_free(yusb_queue* queue) {
  if (queue == nullptr) return YUSB_OK;
  if (const yusb_status status = may_wait()) return status;
  delete queue;
  return YUSB_OK;
}
