// Linked to an example of an event loop. Attaches and detaches devices on a simulated bus, each after the
// example has printed the previous change, and ends the example like Ctrl-C. It must still print the queued
// events and release the library.
#include <poll.h>
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
    if (pipe(_output) != 0 || dup2(_output[1], STDOUT_FILENO) < 0) fail("no pipe");
    close(_output[1]);
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
    expect("+ 0x1100000 18d1:4ee7\n");
    plug(0x01200000);
    expect("+ 0x1200000 18d1:4ee7\n");
    _bus.unplug(_phone);
    expect("- 0x1100000 18d1:4ee7\n");
    std::string queued;
    for (unsigned place = 1; place <= 9; ++place) {
      plug(0x01300000 + place);
      queued += "+ 0x130000" + std::to_string(place) + " 18d1:4ee7\n";
    }
    if (!_bus.settle()) fail("the library does not settle");
    kill(getpid(), SIGTERM);
    expect(queued);
  }

  void expect(const std::string& lines) {
    std::string printed(lines.size(), ' ');
    for (std::size_t size = 0; size < lines.size();) {
      pollfd waited = {_output[0], POLLIN, 0};
      const ssize_t more =
          poll(&waited, 1, 60'000) > 0 ? read(_output[0], &printed[size], lines.size() - size) : 0;
      if (more <= 0) fail("prints nothing more; expected:\n" + lines);
      size += static_cast<std::size_t>(more);
    }
    if (printed != lines) fail("printed:\n" + printed + "expected:\n" + lines);
  }

  yusb::simulator _bus;
  int _phone;
  int _output[2];
  std::thread _thread;
} _user;

}  // namespace
