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

#include "line.h"
#include "output.h"
#include "picture.h"
#include "stop.h"
#include "tree.h"

namespace yusb::tool {

namespace {

using std::chrono::milliseconds;

// With the first enumeration, which devices that do not answer hold up for seconds each.
constexpr std::chrono::seconds patience(30);
// With what is attached when a watch begins: its lines are aligned if they are known together.
constexpr milliseconds alignment_patience(300);
// Else a flood of events would be collected and never shown.
constexpr std::size_t enough_at_once = 1000;

class library {
 public:
  library() { global_initialize(); }
  ~library() { global_release(); }
  library(const library&) = delete;
  library& operator=(const library&) = delete;
};

// What is left of a time limit.
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

// Ends a scenario before what its end is told to is gone.
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
  const bool complete = bus_settle(patience);
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
  complain("the bus could not be read to its end within 30 s; --log may tell why");
  return exit_failure;
}

// What the queue has to tell now; waits for the first of it.
std::vector<event> next_events(watch_queue& queue, picture& known, milliseconds limit) {
  std::vector<event> events;
  for (auto told = queue.next(limit); told; told = queue.next(milliseconds(0))) {
    const auto changes = known.apply(*told, now());
    events.insert(events.end(), changes.begin(), changes.end());
    if (events.size() >= enough_at_once) break;
  }
  return events;
}

int watch(const options& chosen, player* scenario) {
  stop ending;
  watch_queue queue(chosen.filter);
  std::thread closer([&] {
    ending.wait(STDOUT_FILENO);
    queue.close();
  });
  output out(ending.descriptor());
  {
    const playing play(scenario, [&] { ending.request(); });
    const countdown remaining(chosen.limit);
    if (!chosen.json) bus_settle(std::min(remaining.left(), alignment_patience));
    std::size_t count = chosen.count.value_or(std::numeric_limits<std::size_t>::max());
    columns lines(coloured_output());
    picture known;
    for (bool reading = true; reading && remaining.left() > milliseconds(0);) {
      const std::vector<event> events = next_events(queue, known, remaining.left());
      for (const event& each : events) lines.fit(each);
      for (const event& each : events) {
        reading = reading && out.write(chosen.json ? json_line(each) : lines.line(each)) && --count > 0;
      }
      reading = reading && !(events.empty() && queue.closed());
    }
  }
  ending.request();
  closer.join();
  return status_of(out);
}

int wait(const options& chosen, player* scenario) {
  const countdown remaining(chosen.limit);
  // Before the first enumeration is over nothing can be said to be gone.
  const bool settled = !chosen.gone || bus_settle(std::min<milliseconds>(remaining.left(), patience));
  watch_queue queue(chosen.filter);
  const playing play(scenario, [&] { queue.close(); });
  picture known;
  while (settled) {
    const bool none = chosen.gone && known.empty();
    const auto told = queue.next(none ? milliseconds(0) : remaining.left());
    if (!told) {
      if (none) return exit_ok;
      if (queue.closed() || remaining.left() == milliseconds(0)) break;
      continue;
    }
    for (const event& each : known.apply(*told, now())) {
      if (chosen.gone || !each.arrived) continue;
      output out;
      out.write(chosen.json ? json_line(each) : columns(coloured_output()).line(each));
      return status_of(out);
    }
  }
  complain(chosen.gone ? "such a device is still attached" : "no such device has arrived");
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
  // A release waits for a device that is being read, and one that does not answer takes seconds. All is
  // written.
  if (scenario == nullptr) std::_Exit(status);
  return status;
}

}  // namespace yusb::tool
