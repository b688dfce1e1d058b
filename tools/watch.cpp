// The commands that print what happens: watch and wait.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "countdown.h"
#include "event_source.h"
#include "format/device_table.h"
#include "format/json.h"
#include "output.h"
#include "playing.h"
#include "stop_signal.h"

namespace yusb::tool {

using namespace format;

namespace {

using std::chrono::milliseconds;

// How long `watch` waits for the devices that are already attached, to align their lines.
constexpr milliseconds alignment_limit(300);
// How long `watch --openable` gives a device until it says that the device cannot be opened.
constexpr std::chrono::seconds open_limit(30);

// The events that are not of one device.
constexpr const char* end_of_list = "listed";
constexpr const char* heartbeat = "heartbeat";

event_source::settings settings_of(const options& chosen, milliseconds limit) {
  event_source::settings settings;
  settings.filter = chosen.filter;
  if (chosen.openable) settings.open_limit = limit;
  return settings;
}

std::string lines_of(const std::vector<event>& events, bool json, device_table* table) {
  std::string text;
  table->set_limit(terminal_width());
  for (const event& each : events) table->fit(each);
  for (const event& each : events) text += json ? json_line(each) : table->line(each);
  return text;
}

class watching {
 public:
  watching(const options& chosen, player* scenario, stop_signal* stop, event_source* source)
      : _chosen(chosen), _stop(stop), _source(source), _out(stop->descriptor()), _play(scenario) {}

  int run() {
    const countdown remaining(_chosen.limit);
    countdown beat(_chosen.heartbeat);
    while (_reading && !remaining.over()) {
      std::vector<event> events = _source->next(std::min(remaining.left(), beat.left()));
      if (events.empty() && _source->closed()) break;
      if (print(std::move(events))) beat = countdown(_chosen.heartbeat);
      if (_source->listed() && !_announced) announce();
      if (beat.over()) {
        mark(heartbeat);
        beat = countdown(_chosen.heartbeat);
      }
    }
    return _out.check() ? exit_ok : exit_failure;
  }

 private:
  // True if there was something to print.
  bool print(std::vector<event> events) {
    const auto left_out = [this](const event& each) {
      return _chosen.only_new && each.initial && each.kind != event_kind::removal;
    };
    events.erase(std::remove_if(events.begin(), events.end(), left_out), events.end());
    events.resize(std::min(events.size(), _count));
    if (events.empty()) return false;
    _count -= events.size();
    _reading = _out.write(lines_of(events, _chosen.json, &_table)) && _count > 0;
    return true;
  }

  void announce() {
    _announced = true;
    if (_chosen.mark_listed) mark(end_of_list);
    _play.start([stop = _stop] { stop->request(); });
  }

  void mark(const char* event) {
    const std::string line = json_line(std::chrono::system_clock::now(), event, _source->devices());
    _reading = _reading && _out.write(line);
  }

  const options& _chosen;
  stop_signal* const _stop;
  event_source* const _source;
  output _out;
  device_table _table{device_table::kind::events, coloured_output()};
  std::size_t _count = _chosen.count.value_or(std::numeric_limits<std::size_t>::max());
  bool _reading = true;
  bool _announced = false;
  playing _play;
};

}  // namespace

int watch(const options& chosen, player* scenario) {
  stop_signal stop;
  event_source::settings settings = settings_of(chosen, open_limit);
  if (!chosen.json) settings.collect = std::min(chosen.limit.value_or(alignment_limit), alignment_limit);
  event_source source(std::move(settings));
  std::thread closer([&] {
    stop.wait(STDOUT_FILENO);
    source.close();
  });
  const int status = watching(chosen, scenario, &stop, &source).run();
  stop.request();
  closer.join();
  return status;
}

int wait(const options& chosen, player* scenario) {
  const countdown remaining(chosen.limit);
  event_source source(settings_of(chosen, std::chrono::hours(24 * 365)));
  playing play(scenario);
  const event_kind awaited = chosen.openable ? event_kind::openable : event_kind::arrival;
  do {
    const std::vector<event> events = source.next(remaining.left());
    const auto found = std::find_if(events.begin(), events.end(), [&](const event& each) {
      return !chosen.gone && each.kind == awaited && !(chosen.only_new && each.initial);
    });
    if (found != events.end()) {
      device_table table(device_table::kind::events, coloured_output());
      output out;
      out.write(lines_of({*found}, chosen.json, &table));
      return out.check() ? exit_ok : exit_failure;
    }
    if (source.listed()) {
      if (chosen.gone && source.devices() == 0) return exit_ok;
      play.start([&] { source.close(); });
    }
    if (events.empty() && source.closed()) break;
  } while (!remaining.over());
  complain(!source.listed()
               ? "the attached devices were not all read in this time: use a longer --timeout, or see --log"
           : chosen.gone     ? "a matching device is still attached"
           : chosen.openable ? "no matching device could be opened"
                             : "no matching device was attached");
  return exit_timed_out;
}

}  // namespace yusb::tool
