// The functions with which each source registers its benchmarks and runs its part of the counted pass.
#ifndef YUSB_BENCH_BENCHMARKS_H_
#define YUSB_BENCH_BENCHMARKS_H_

namespace bench {

void register_core();
void register_bus();
void register_details();
void register_scaling();
void register_languages();

void count_core();
void count_bus();
void count_details();
void count_idle();

}  // namespace bench

#endif  // YUSB_BENCH_BENCHMARKS_H_
