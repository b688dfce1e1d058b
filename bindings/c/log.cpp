#include <YorvanCore/YLog.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "convert.h"
#include "life.h"

using namespace yusb::c;

namespace {

struct line_copy : yusb_log_line {
  line_copy() : yusb_log_line{} {}

  std::string kept;
};

struct kept_lines {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<line_copy> lines;  // under mutex, as all members below
  std::size_t capacity = 0;
  std::size_t dropped = 0;  // after the last of `lines`
};

// Never destroyed, because the library may log until the process ends.
kept_lines& kept() {
  static auto& lines = *new kept_lines;
  return lines;
}

void drop_first(kept_lines& all) {
  std::size_t& next = all.lines.size() > 1 ? all.lines[1].dropped : all.dropped;
  next += all.lines.front().dropped + 1;
  all.lines.pop_front();
}

// The sink. It runs under the library's locks, and must not throw.
void keep(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size, void* user) {
  kept_lines& all = *static_cast<kept_lines*>(user);
  const std::lock_guard<std::mutex> lock(all.mutex);
  try {
    line_copy copy;
    copy.level = static_cast<yusb_log_level>(level);
    copy.kept = utf8_of({line, size});
    copy.dropped = all.dropped;
    all.lines.push_back(std::move(copy));
    all.dropped = 0;
    if (all.lines.size() > all.capacity) drop_first(all);
    all.changed.notify_one();
  } catch (const std::bad_alloc&) {
    ++all.dropped;
  }
}

}  // namespace

yusb_status yusb_log_threshold(yusb_log_level level) {
  if (level < YUSB_LOG_TRACE || level > YUSB_LOG_FATAL) return YUSB_INVALID_ARGUMENT;
  if (is_forked()) return YUSB_FORKED;
  YLog::setThreshold(static_cast<EYORVAN_LOG_LEVEL>(level));
  return YUSB_OK;
}

yusb_status yusb_log_keep(std::size_t capacity) {
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    kept_lines& all = kept();
    if (capacity == 0) YLog::setSink(nullptr, nullptr);
    {
      const std::lock_guard<std::mutex> lock(all.mutex);
      all.capacity = capacity;
      while (all.lines.size() > capacity) drop_first(all);
    }
    if (capacity != 0) YLog::setSink(keep, &all);
    return YUSB_OK;
  });
}

yusb_status yusb_log_next(std::int64_t limit, yusb_log_line** line) {
  if (line == nullptr) return YUSB_INVALID_ARGUMENT;
  *line = nullptr;
  if (is_forked()) return YUSB_FORKED;
  return without_exceptions([&] {
    auto copy = std::make_unique<line_copy>();
    kept_lines& all = kept();
    std::unique_lock<std::mutex> lock(all.mutex);
    if (!all.changed.wait_for(lock, limit_of(limit), [&] { return !all.lines.empty(); }))
      return YUSB_TIMED_OUT;
    *copy = std::move(all.lines.front());
    all.lines.pop_front();
    copy->size = sizeof(yusb_log_line);
    copy->text = copy->kept.c_str();
    *line = copy.release();
    return YUSB_OK;
  });
}

yusb_status yusb_log_line_free(yusb_log_line* line) {
  delete static_cast<line_copy*>(line);
  return YUSB_OK;
}
