// Injects allocation failures into a program that is linked with failing_memory.cpp.
#ifndef YUSB_TESTS_FAILING_MEMORY_H_
#define YUSB_TESTS_FAILING_MEMORY_H_

enum class on { no_thread, this_thread, other_threads };

// Starts counting the allocations of these threads, from 1; the one with this number fails. With `lasting`,
// every later one fails too.
void begin_failing(on thread, int number, bool lasting);

// Stops the failures. Returns whether an allocation has failed since begin_failing().
bool end_failing();

// Returns the number of allocations by nothrow new that have not been freed.
long blocks_left();

#endif  // YUSB_TESTS_FAILING_MEMORY_H_
