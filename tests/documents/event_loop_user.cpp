// Linked to an example of an event loop. Attaches and detaches devices on a simulated bus, each after the
// example has printed the previous change, and ends the example like Ctrl-C. It must still print the queued
// events and release the library.
#include <unistd.h>
#include <yusb_simulator.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::_Exit(1);
}

class user {
 public:
  user() {
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) fail("no pipe");
    close(ends[1]);
    _output = fdopen(ends[0], "r");
    sigset_t all, before;
    sigfillset(&all);  // so that the example's thread receives the signal
    pthread_sigmask(SIG_SETMASK, &all, &before);
    _phone = plug(0x01100000);
    _thread = std::thread([this] { act(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  // The example has returned from main.
  ~user() {
    _thread.join();
    if (!yusb::simulator::leaks().empty()) fail("it leaves the library running");
  }

 private:
  int plug(std::uint32_t location) {
    yusb::simulated_device phone;
    phone.vendor = 0x18D1;
    phone.product = 0x4EE7;
    phone.location = location;
    return _bus.plug(phone);
  }

  void act() {
    alarm(60);  // terminates an example that prints too little
    expect("+ 0x1100000");
    plug(0x01200000);
    expect("+ 0x1200000");
    _bus.unplug(_phone);
    expect("- 0x1100000");
    for (std::uint32_t location = 0x01300001; location < 0x0130000A; ++location) plug(location);
    if (!_bus.settle()) fail("the library does not settle");
    kill(getpid(), SIGTERM);
    for (char last = '1'; last <= '9'; ++last) expect(std::string("+ 0x130000") + last);
  }

  void expect(const std::string& change) {
    char line[64];
    if (std::fgets(line, sizeof line, _output) == nullptr) fail("prints no " + change);
    if (line != change + " 18d1:4ee7\n") fail("prints " + std::string(line) + "instead of " + change);
  }

  yusb::simulator _bus;
  int _phone;
  std::FILE* _output;
  std::thread _thread;
} _user;

}  // namespace
