#ifndef YUSB_TOOLS_PLAYING_H_
#define YUSB_TOOLS_PLAYING_H_

#include <functional>
#include <utility>

#include "player.h"

namespace yusb::tool {

// Plays a scenario from start() on while it lives, so that `at_end` is not called after what it refers to is
// destroyed. Does nothing without a scenario.
class playing {
 public:
  explicit playing(player* scenario) : _scenario(scenario) {}
  ~playing() {
    if (_scenario != nullptr) _scenario->finish();
  }
  playing(const playing&) = delete;
  playing& operator=(const playing&) = delete;

  // Calls after the first do nothing.
  void start(std::function<void()> at_end) {
    if (_scenario != nullptr && !_started) _scenario->start(std::move(at_end));
    _started = true;
  }

 private:
  player* const _scenario;
  bool _started = false;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_PLAYING_H_
