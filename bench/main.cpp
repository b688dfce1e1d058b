// Benchmarks of the library. "--counts" runs each piece of work once, for counting; "--idle" observes the
// idle library for ten seconds; other arguments are Google Benchmark's. bench/report.py runs everything.
#include <cstring>

#include <YorvanCore/YLog.h>

#include "benchmarks.h"
#include "host.h"
#include "measure.h"

int main(int argc, char** argv) {
  bench::enter_host(argv);
  // Lines are formatted and dropped.
  YLog::setSink([](EYORVAN_LOG_LEVEL, const char*, std::size_t, void*) {}, nullptr);
  if (argc > 1 && std::strcmp(argv[1], "--counts") == 0) {
    bench::print("umockdev host", bench::on_umockdev());
    bench::count_core();
    bench::count_bus();
    bench::count_details();
    return 0;
  }
  if (argc > 1 && std::strcmp(argv[1], "--idle") == 0) {
    bench::count_idle();
    return 0;
  }
  bench::register_core();
  bench::register_bus();
  bench::register_details();
  bench::register_scaling();
  bench::register_languages();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
