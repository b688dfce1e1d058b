#include "player.h"

#include <utility>

#include <yusb_bus.h>

namespace yusb::tool {

namespace {

// A generous bound: the library reads a simulated device without delay.
constexpr std::chrono::seconds settle_limit(30);

}  // namespace

player::player(scenario scenario, std::unique_ptr<simulated_bus> bus)
    : _scenario(std::move(scenario)), _bus(std::move(bus)), _numbers(_scenario.devices.size()) {
  for (std::size_t i = 0; i < _scenario.opening(); ++i) play(_scenario.steps[i]);
}

player::~player() { finish(); }

void player::start(std::function<void()> at_end) {
  _thread = std::thread([this, at_end = std::move(at_end)] {
    for (std::size_t i = _scenario.opening(); i < _scenario.steps.size(); ++i) {
      play(_scenario.steps[i]);
      // A device that is detached before the library has read its strings is never reported.
      if (finished_within({}) || !bus_settle(settle_limit)) break;
    }
    if (!finished_within({})) at_end();
  });
}

void player::finish() {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _finished = true;
    _changed.notify_all();
  }
  if (_thread.joinable()) _thread.join();
}

void player::play(const step& step) {
  switch (step.what) {
    case step::attach:
      _numbers[step.device] = _bus->plug(_scenario.devices[step.device]);
      break;
    case step::detach:
      _bus->unplug(_numbers[step.device]);
      break;
    case step::wait:
      finished_within(step.duration);
      break;
  }
}

bool player::finished_within(std::chrono::milliseconds duration) {
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, duration, [this] { return _finished; });
}

}  // namespace yusb::tool
