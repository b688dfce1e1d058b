#include "commands.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <thread>

#include <yusb_watcher.h>

#include "line.h"
#include "output.h"
#include "picture.h"
#include "stop.h"
#include "tree.h"

namespace yusb::tool {

namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds patience(
    30);  // a device that does not answer can hold up the others for seconds

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

int status_of(const output& out) {
  std::string error;
  if (!out.failed(&error)) return exit_ok;
  complain(error);
  return exit_failure;
}

int list(const options& chosen) {
  const library running;
  const bool complete = settle(patience);
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

int watch(const options& chosen, player* scenario) {
  stop ending;
  const library running;
  watch_queue queue(chosen.filter);
  std::thread closer([&] {
    ending.wait(STDOUT_FILENO);
    queue.close();
  });
  output out(ending.descriptor());
  {
    const playing play(scenario, [&] { ending.request(); });
    const countdown remaining(chosen.limit);
    std::size_t count = chosen.count.value_or(std::numeric_limits<std::size_t>::max());
    columns lines(coloured_output());
    picture known;
    bool reading = true;
    while (reading && remaining.left() > milliseconds(0)) {
      const auto told = queue.next(remaining.left());
      if (!told) {
        reading = !queue.closed();
        continue;
      }
      for (const event& each : known.apply(*told, now())) {
        reading = reading && out.write(chosen.json ? json_line(each) : lines.line(each)) && --count > 0;
      }
    }
  }
  ending.request();
  closer.join();
  return status_of(out);
}

int wait(const options& chosen, player* scenario) {
  const library running;
  const countdown remaining(chosen.limit);
  // Before the first enumeration is over nothing can be said to be gone.
  const bool settled = !chosen.gone || settle(std::min<milliseconds>(remaining.left(), patience));
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
  switch (chosen.chosen) {
    case command::list:
      return list(chosen);
    case command::watch:
      return watch(chosen, scenario);
    case command::wait:
      return wait(chosen, scenario);
  }
  return exit_usage;
}

}  // namespace yusb::tool
