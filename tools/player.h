#ifndef YUSB_TOOLS_PLAYER_H_
#define YUSB_TOOLS_PLAYER_H_

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "scenario.h"
#include "simulated_bus.h"

namespace yusb::tool {

// Plays a scenario on a simulated bus. The constructor attaches the scenario's opening. Construct it before
// yusb::global_initialize, and destroy it after yusb::global_release.
class player {
 public:
  player(scenario scenario, std::unique_ptr<simulated_bus> bus);
  ~player();
  player(const player&) = delete;
  player& operator=(const player&) = delete;

  // Plays the rest on a thread. Calls `at_end` on that thread when the library has handled all of it. Call
  // start() once at most, when the library has listed the opening.
  void start(std::function<void()> at_end);

  // Stops playing. When this returns, `at_end` has returned or is never called.
  void finish();

 private:
  void play(const step& step);
  bool finished_within(std::chrono::milliseconds duration);

  const scenario _scenario;
  const std::unique_ptr<simulated_bus> _bus;
  std::vector<int> _numbers;  // on the bus; indexed like scenario::devices
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _finished = false;  // under _mutex
  std::thread _thread;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_PLAYER_H_
