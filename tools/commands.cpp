#include "commands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <yusb_bus.h>
#include <yusb_watcher.h>

#include "format/event_format.h"
#include "known_devices.h"
#include "output.h"
#include "stop_signal.h"
#include "tree.h"

namespace yusb::tool {

using namespace format;

namespace {

using std::chrono::milliseconds;

// How long to wait for the first enumeration; each unresponsive device delays it by seconds.
constexpr std::chrono::seconds enumeration_limit(30);
// How long `watch` waits for the devices that are already attached, to align their lines.
constexpr milliseconds alignment_limit(300);
// How many events to collect before printing them, so that a flood is shown while it lasts.
constexpr std::size_t largest_batch = 1000;

class library {
 public:
  library() { global_initialize(); }
  ~library() { global_release(); }
  library(const library&) = delete;
  library& operator=(const library&) = delete;
};

// The time left of a limit.
class countdown {
 public:
  explicit countdown(std::optional<milliseconds> limit)
      : _end(limit ? std::chrono::steady_clock::now() + *limit
                   : std::chrono::steady_clock::time_point::max()) {}

  milliseconds left() const {
    const auto now = std::chrono::steady_clock::now();
    return now >= _end ? milliseconds(0) : std::chrono::ceil<milliseconds>(_end - now);
  }

 private:
  const std::chrono::steady_clock::time_point _end;
};

// Plays a scenario while it lives, so that `at_end` is not called after what it refers to is destroyed.
class playing {
 public:
  playing(player* scenario, std::function<void()> at_end) : _scenario(scenario) {
    if (_scenario != nullptr) _scenario->start(std::move(at_end));
  }
  ~playing() {
    if (_scenario != nullptr) _scenario->finish();
  }
  playing(const playing&) = delete;
  playing& operator=(const playing&) = delete;

 private:
  player* const _scenario;
};

time_point now() { return std::chrono::system_clock::now(); }

int status_of(const output& out) { return out.check() ? exit_ok : exit_failure; }

int list(const options& chosen) {
  const bool complete = bus_settle(enumeration_limit);
  std::vector<YUsbInfoDevice> devices;
  device_traverse(nullptr, [&](const YUsbInfoDevice& device) {
    if (!chosen.filter || chosen.filter(device)) devices.push_back(device);
    return true;
  });
  sort_by_location(&devices);

  columns lines(coloured_output());
  const auto branches = chosen.tree ? tree_branches(devices) : std::vector<std::string>(devices.size());
  const time_point when = now();
  std::string text;
  for (std::size_t i = 0; i < devices.size(); ++i) lines.fit({when, true, devices[i]}, branches[i]);
  for (std::size_t i = 0; i < devices.size(); ++i) {
    const event attached{when, true, devices[i]};
    text += chosen.json ? json_line(attached) : lines.line(attached, branches[i]);
  }
  output out;
  out.write(text);
  if (complete) return status_of(out);
  complain("not all devices could be read within 30 s; --log may show the reason");
  return exit_failure;
}

// The events that the queue holds; waits for the first one.
std::vector<event> next_events(watch_queue& queue, known_devices& known, milliseconds limit) {
  std::vector<event> events;
  for (auto next = queue.next(limit); next; next = queue.next(milliseconds(0))) {
    const auto changes = known.apply(*next, now());
    events.insert(events.end(), changes.begin(), changes.end());
    if (events.size() >= largest_batch) break;
  }
  return events;
}

int watch(const options& chosen, player* scenario) {
  stop_signal stop;
  watch_queue queue(chosen.filter);
  std::thread closer([&] {
    stop.wait(STDOUT_FILENO);
    queue.close();
  });
  output out(stop.descriptor());
  {
    const playing play(scenario, [&] { stop.request(); });
    const countdown remaining(chosen.limit);
    if (!chosen.json) bus_settle(std::min(remaining.left(), alignment_limit));
    std::size_t count = chosen.count.value_or(std::numeric_limits<std::size_t>::max());
    columns lines(coloured_output());
    known_devices known;
    for (bool reading = true; reading && remaining.left() > milliseconds(0);) {
      const std::vector<event> events = next_events(queue, known, remaining.left());
      for (const event& each : events) lines.fit(each);
      for (const event& each : events) {
        reading = reading && out.write(chosen.json ? json_line(each) : lines.line(each)) && --count > 0;
      }
      reading = reading && !(events.empty() && queue.closed());
    }
  }
  stop.request();
  closer.join();
  return status_of(out);
}

int wait(const options& chosen, player* scenario) {
  const countdown remaining(chosen.limit);
  // Until the first enumeration is over, a device that is missing may not have been listed yet.
  const bool settled =
      !chosen.gone || bus_settle(std::min<milliseconds>(remaining.left(), enumeration_limit));
  watch_queue queue(chosen.filter);
  const playing play(scenario, [&] { queue.close(); });
  known_devices known;
  while (settled) {
    const bool none = chosen.gone && known.empty();
    const auto next = queue.next(none ? milliseconds(0) : remaining.left());
    if (!next) {
      if (none) return exit_ok;
      if (queue.closed() || remaining.left() == milliseconds(0)) break;
      continue;
    }
    for (const event& each : known.apply(*next, now())) {
      if (chosen.gone || !each.arrived) continue;
      output out;
      out.write(chosen.json ? json_line(each) : columns(coloured_output()).line(each));
      return status_of(out);
    }
  }
  complain(!settled      ? "not all devices could be read in time; --log may show the reason"
           : chosen.gone ? "a matching device is still attached"
                         : "no matching device was attached");
  return exit_timed_out;
}

}  // namespace

int run(const options& chosen, player* scenario) {
  const library running;
  int status = exit_ok;
  switch (chosen.chosen) {
    case command::list:
      status = list(chosen);
      break;
    case command::watch:
      status = watch(chosen, scenario);
      break;
    case command::wait:
      status = wait(chosen, scenario);
      break;
  }
  // All output is written. Releasing the library would wait for a device that is being read, for seconds if
  // it does not answer.
  if (scenario == nullptr) std::_Exit(status);
  return status;
}

}  // namespace yusb::tool
