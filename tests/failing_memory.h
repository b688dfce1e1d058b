// The allocations of a program that is linked with failing_memory.cpp fail on request.
#ifndef YUSB_TESTS_FAILING_MEMORY_H_
#define YUSB_TESTS_FAILING_MEMORY_H_

enum class on { no_thread, this_thread, other_threads };

// From now on the allocations of these threads are counted, and the one of this number fails, from 1. With
// `lasting` every later one fails too.
void begin_failing(on thread, int number, bool lasting);

// No further allocation fails. Returns whether one has since begin_failing().
bool end_failing();

// How many allocations by nothrow new have not been freed.
long blocks_left();

#endif  // YUSB_TESTS_FAILING_MEMORY_H_
