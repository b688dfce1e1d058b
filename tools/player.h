#ifndef YUSB_TOOLS_PLAYER_H_
#define YUSB_TOOLS_PLAYER_H_

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host.h"
#include "scenario.h"

namespace yusb::tool {

// Plays a scenario on a simulated bus. Lives around the library: from before yusb::global_initialize, when it
// attaches the scenario's opening, until after yusb::global_release.
class player {
 public:
  player(scenario scenario, std::unique_ptr<simulated_bus> bus);
  ~player();
  player(const player&) = delete;
  player& operator=(const player&) = delete;

  // Plays the rest, on a thread, and calls `at_end` there when the library has handled it all. Call it once
  // at most.
  void start(std::function<void()> at_end);

  // Cuts it short. When this returns, `at_end` runs no more.
  void finish();

 private:
  void play(const step& step);
  bool finished_within(std::chrono::milliseconds duration);

  const scenario _scenario;
  const std::unique_ptr<simulated_bus> _bus;
  std::vector<int> _numbers;  // on the bus, by device of the scenario
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _finished = false;  // under _mutex
  std::thread _thread;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_PLAYER_H_
