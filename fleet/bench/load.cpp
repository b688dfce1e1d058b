// Measures a fleet: agent cores in this process, real agents in processes of their own, readers and a broker.
//
//   yusb_fleet_load HOSTS DEVICES [PROCESSES PROGRAM]
//
// PROGRAM is yusb-fleet; each process has a mocked USB bus of DEVICES devices (umockdev-run). Prints one row
// of the table in docs/performance.md.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "broker.h"
#include "fleet/agent.h"
#include "fleet/reader.h"
#include "generator.h"

namespace {

using namespace yusb::fleet;
using clock_type = std::chrono::steady_clock;

constexpr unsigned plugs = 2000;
constexpr unsigned first_plug = 100000;  // number of the first device that is plugged
constexpr int pictures = 20;

double milliseconds_since(clock_type::time_point start) {
  return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

double megabytes(pid_t process) {
  std::ifstream in("/proc/" + std::to_string(process) + "/status");
  for (std::string word; in >> word;) {
    if (word == "VmRSS:" && in >> word) return std::stod(word) / 1024;
  }
  return 0;
}

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values.at(static_cast<std::size_t>(part * static_cast<double>(values.size() - 1)));
}

connection_options client_of(const broker& at) {
  connection_options made;
  made.broker = {false, "127.0.0.1", at.port()};
  return made;
}

// A reader on a thread of its own.
class reading {
 public:
  reading(const connection_options& client, std::size_t devices)
      : _started(clock_type::now()), _expected(devices) {
    _thread = std::thread([this, client] {
      reader shown(
          _loop, client, "yusb", "",
          {[this](const host&, device_news news, const shown_device& device) { on_device(news, device); },
           [](const host&) {}, [this] { check(); },
           [](const std::string& host) { std::fprintf(stderr, "incomplete: %s\n", host.c_str()); },
           [](const std::string&) {}, [this](const std::string&) { _took = 0; }});
      _shown = &shown;
      shown.start();
      _loop.run();
      _shown = nullptr;
    });
  }
  ~reading() {
    _loop.post([this] { _loop.stop(); });
    _thread.join();
  }
  // Milliseconds from the start to the whole picture; 0 before.
  double took() const { return _took; }
  // Milliseconds; 0 if it has not been seen.
  double plug_latency(unsigned number) const { return _latency.at(number); }
  void plugged(unsigned number) { _plugged.at(number) = clock_type::now().time_since_epoch().count(); }

 private:
  void on_device(device_news news, const shown_device& device) {
    const unsigned number =
        static_cast<unsigned>(std::atoi(device.device.details->serial_number.c_str() + 1));
    if (news == device_news::arrival && number >= first_plug) {
      const auto at = clock_type::time_point(clock_type::duration(_plugged.at(number - first_plug)));
      _latency.at(number - first_plug) = milliseconds_since(at);
    }
    check();
  }
  void check() {
    if (_took != 0 || !_shown->complete()) return;
    std::size_t devices = 0;
    for (const auto& [level, each] : _shown->hosts()) devices += each.devices.size();
    if (devices == _expected) _took = milliseconds_since(_started);
  }

  const clock_type::time_point _started;
  const std::size_t _expected;
  std::atomic<double> _took{0};
  std::vector<std::atomic<clock_type::rep>> _plugged = std::vector<std::atomic<clock_type::rep>>(plugs);
  std::vector<std::atomic<double>> _latency = std::vector<std::atomic<double>>(plugs);
  loop _loop;
  reader* _shown = nullptr;
  std::thread _thread;
};

struct core {
  core(loop& loop, const connection_options& client, unsigned number, unsigned count) : devices(count) {
    agent_options options;
    options.connection = client;
    options.connection.longest_delay = std::chrono::seconds(2);
    options.host = "host" + std::to_string(number);
    options.machine = options.host;
    publisher = std::make_unique<agent>(
        loop, options, devices,
        agent::handlers{[](const std::string&) {}, [](agent_end, const std::string&) {}});
    publisher->start();
  }
  generator devices;
  std::unique_ptr<agent> publisher;
};

void until(loop& loop, const std::function<bool()>& condition, const char* what) {
  const auto end = clock_type::now() + std::chrono::minutes(5);
  std::function<void()> check = [&] {
    if (condition()) return loop.stop();
    if (clock_type::now() > end) {
      std::fprintf(stderr, "not within five minutes: %s\n", what);
      std::exit(1);
    }
    loop.after(std::chrono::milliseconds(5), [&] { check(); });
  };
  loop.post(check);  // run() forgets an earlier stop()
  loop.run();
}

std::string mocked_bus(unsigned devices) {
  std::string text;
  for (unsigned i = 1; i <= devices; ++i) {
    text += "P: /devices/usb1/1-" + std::to_string(i) +
            "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: busnum=1\\n\n" + "A: devnum=" + std::to_string(i) +
            "\\n\nA: idVendor=18d1\\n\nA: idProduct=4ee7\\n\nA: bcdDevice=0100\\n\n" + "A: serial=R" +
            std::to_string(i) + "\\n\nA: bDeviceClass=00\\n\n\n";
  }
  return text;
}

std::vector<pid_t> start_processes(const broker& at, unsigned count, unsigned devices, const char* program) {
  std::vector<pid_t> made;
  const std::string bus = at.file("bus.umockdev");
  std::ofstream(bus) << mocked_bus(devices);
  const std::string url = "mqtt://127.0.0.1:" + std::to_string(at.port());
  for (unsigned i = 0; i < count; ++i) {
    made.push_back(fork());
    if (made.back() != 0) continue;
    setpgid(0, 0);
    execlp("umockdev-run", "umockdev-run", "-d", bus.c_str(), "--", program, "agent", "--broker", url.c_str(),
           "--host", ("real" + std::to_string(i)).c_str(), nullptr);
    _exit(127);
  }
  return made;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) {
    std::fprintf(stderr, "Usage: yusb_fleet_load HOSTS DEVICES [PROCESSES PROGRAM]\n");
    return 2;
  }
  const unsigned hosts = static_cast<unsigned>(std::atoi(argv[1]));
  const unsigned count = static_cast<unsigned>(std::atoi(argv[2]));
  const unsigned real = argc == 5 ? static_cast<unsigned>(std::atoi(argv[3])) : 0;
  std::signal(SIGPIPE, SIG_IGN);
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);

  // The shipped limits of its queues.
  broker at("max_queued_messages 0\nmax_queued_bytes 67108864\nlog_type none\n");
  at.start();
  const connection_options client = client_of(at);
  loop loop;
  const double before = megabytes(getpid());
  const auto started = clock_type::now();
  std::vector<std::unique_ptr<core>> cores;
  for (unsigned i = 0; i < hosts; ++i) cores.push_back(std::make_unique<core>(loop, client, i, count));
  const auto settled = [&] {
    return std::all_of(cores.begin(), cores.end(),
                       [](const auto& each) { return each->publisher->settled(); });
  };
  until(loop, settled, "the agents have published");
  const double ready = milliseconds_since(started);
  const double agents = megabytes(getpid()) - before;
  const auto processes = start_processes(at, real, count, real != 0 ? argv[4] : "");
  const std::size_t all = std::size_t{hosts + real} * count;

  std::vector<double> took;
  double reader_size = 0;
  std::unique_ptr<reading> reading;
  const double without = megabytes(getpid());
  for (int i = 0; i < pictures + 1; ++i) {
    reading.reset();
    reading = std::make_unique<class reading>(client, all);
    until(
        loop, [&] { return reading->took() != 0; }, "the reader has the whole picture");
    if (i == 0) reader_size = megabytes(getpid()) - without;
    if (i > 0) took.push_back(reading->took());  // the first one waits for the processes
  }

  std::minstd_rand random(1);
  std::vector<double> latency;
  for (unsigned i = 0; i < plugs; ++i) {
    core& chosen = *cores.at(random() % hosts);
    reading->plugged(i);
    chosen.devices.attach(first_plug + i);
    until(
        loop, [&] { return reading->plug_latency(i) != 0; }, "the reader shows the device");
    latency.push_back(reading->plug_latency(i));
    chosen.devices.detach(first_plug + i);
  }
  until(loop, settled, "the agents have cleared the devices");
  const double broker_size = megabytes(at.process());
  double process_size = 0;
  for (const pid_t each : processes) {
    std::ifstream in("/proc/" + std::to_string(each) + "/task/" + std::to_string(each) + "/children");
    pid_t child = 0;
    if (in >> child) process_size = std::max(process_size, megabytes(child));
  }

  // The broker loses everything.
  reading.reset();
  at.end(SIGKILL);
  at.start();
  const auto killed = clock_type::now();
  reading = std::make_unique<class reading>(client, all);
  until(
      loop, [&] { return reading->took() != 0; }, "the broker has everything again");
  const double recovered = milliseconds_since(killed);
  reading.reset();
  for (const pid_t each : processes) kill(-each, SIGKILL);
  for (const pid_t each : processes) waitpid(each, nullptr, 0);

  std::printf(
      "| %u + %u | %zu | %.2f s | %.0f / %.0f ms | %.2f / %.2f ms | %.1f MB (%.0f kB each) | %.1f MB | %.1f "
      "MB | %.1f MB | %.1f s |\n",
      hosts, real, all, ready / 1000, quantile(took, 0.5), quantile(took, 1), quantile(latency, 0.5),
      quantile(latency, 0.99), agents, agents * 1024 / hosts, process_size, reader_size, broker_size,
      recovered / 1000);
  return 0;
}
