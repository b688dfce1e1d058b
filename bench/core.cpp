// The library's core compared with its baseline.
#include <string>
#include <vector>

#include <YorvanCore/YLog.h>
#include <yusb.h>
#include <yusb_simulator.h>

#include "baseline_core.h"
#include "benchmarks.h"
#include "measure.h"

namespace bench {

namespace {

struct counting_interface final : yusb_device_event_interface {
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override { ++heard; }
  long heard = 0;
};

YUsbInfoDevice make_record(int number) {
  YUsbInfoDevice record;
  record.setVendorID(0x1234);
  record.setProductID(0x5678);
  record.setFactory("Northwind Instruments Ltd.");
  record.setSerialNumber(YString::format("NW-2024-%08d-A7F3", number));
  record.setLocation(YString::format("0x%X", 0x01000000 + number));
  record.setInstancePath(record.location());
  record.setDescribe("Precision Logic Analyzer");
  return record;
}

// ---- The same set-up for both ----

class core {
 public:
  core(int listed, int contexts = 1, int interfaces = 1)
      : _interfaces(static_cast<std::size_t>(contexts * interfaces)),
        _contexts(static_cast<std::size_t>(contexts)) {
    YLog::setThreshold(EYORVAN_LOG_LEVEL_FATAL);  // the baseline has no log
    yusb::global_initialize();
    auto next = _interfaces.begin();
    for (auto& opened : _contexts) {
      _yusb_context* context = nullptr;
      yusb::context_create(&context);
      for (int i = 0; i < interfaces; ++i, ++next) {
        yusb::context_notify_object_append(context, &*next);
        opened.interfaces.insert(&*next);
      }
      baseline.open(&opened);
    }
    for (int i = 0; i < listed; ++i) {
      yusb::common_device_append(make_record(i));
      baseline.append(make_record(i));
    }
  }
  ~core() {
    yusb::global_release();
    YLog::setThreshold(EYORVAN_LOG_LEVEL_TRACE);
  }

  baseline_core baseline;

 private:
  const yusb::simulator _bus;
  std::vector<counting_interface> _interfaces;
  std::vector<baseline_context> _contexts;
};

const YUsbInfoDevice unlisted = make_record(0x100000);
long visited = 0;

bool visit(const YUsbInfoDevice&) {
  ++visited;
  return true;
}

// Passes each piece of work with its name to `measure`, in turn, because a process has only one library.
template <typename Measure>
void each_work(Measure measure) {
  const auto both = [&](const std::string& name, auto set_up, auto of_library, auto of_baseline) {
    measure(name + "/library", set_up, of_library);
    measure(name + "/baseline", set_up, of_baseline);
  };
  using sizes = std::pair<int, int>;
  for (const auto& [contexts, interfaces] :
       {sizes(1, 1), sizes(10, 10), sizes(100, 10), sizes(10, 1), sizes(100, 1), sizes(1000, 1)}) {
    both(
        "deliver/" + std::to_string(contexts) + "x" + std::to_string(interfaces),
        [c = contexts, i = interfaces] { return std::make_unique<core>(0, c, i); },
        [](core&) { yusb::common_device_remove(unlisted); }, [](core& of) { of.baseline.remove(unlisted); });
  }
  for (const int listed : {0, 10, 100, 1000}) {
    const auto set_up = [listed] { return std::make_unique<core>(listed); };
    const std::string size = "/" + std::to_string(listed);
    both(
        "change" + size, set_up,
        [](core&) {
          yusb::common_device_append(unlisted);
          yusb::common_device_remove(unlisted);
        },
        [](core& of) {
          of.baseline.append(unlisted);
          of.baseline.remove(unlisted);
        });
    both(
        "snapshot" + size, set_up, [](core&) { yusb::device_traverse(nullptr, visit); },
        [](core& of) { of.baseline.walk(visit); });
    both(
        "presence" + size, set_up,
        [](core&) { benchmark::DoNotOptimize(yusb::device_is_exist(nullptr, unlisted)); },
        [](core& of) { benchmark::DoNotOptimize(of.baseline.is_listed(unlisted)); });
  }
  both(
      "classify/android", [] { return std::make_unique<core>(0); },
      [](core&) { benchmark::DoNotOptimize(yusb::device_is_android(unlisted)); },
      [](core&) { benchmark::DoNotOptimize(baseline_is_android(unlisted)); });
}

}  // namespace

void register_core() {
  each_work([](const std::string& name, auto set_up, auto work) {
    benchmark::RegisterBenchmark(name.c_str(), [set_up, work](benchmark::State& state) {
      const auto made = set_up();
      for (auto _ : state) work(*made);
    });
  });
}

void count_core() {
  each_work([](const std::string& name, auto set_up, auto work) {
    const auto made = set_up();
    yusb::bus_settle();
    count(name, 100, [&] { work(*made); });
  });
}

}  // namespace bench
