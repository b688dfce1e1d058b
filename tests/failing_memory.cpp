#include "failing_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define FAILS_MALLOC  // a sanitizer has its own malloc
extern "C" void* __libc_malloc(std::size_t) noexcept;
extern "C" void* __libc_calloc(std::size_t, std::size_t) noexcept;
#else
#define __libc_malloc std::malloc
#endif

namespace {

std::atomic<on> _counted{on::no_thread};  // whose allocations are counted
thread_local bool _is_host = false;       // for on::this_thread
std::atomic<int> _countdown{0};           // the allocation that takes it to 0 fails
bool _lasting = false;                    // every later one fails too
std::atomic<bool> _failed{false};         // an allocation has failed

std::atomic<long> _left{0};  // unfreed allocations by nothrow new

bool fails() {
  if (_counted != (_is_host ? on::this_thread : on::other_threads)) return false;
  const int left = --_countdown;
  const bool now = left == 0 || (left < 0 && _lasting);
  if (now) _failed = true;
  return now;
}

// A block, preceded by its counters.
void* allocate(std::size_t size, long count) {
  auto* const block = static_cast<std::max_align_t*>(__libc_malloc(sizeof(std::max_align_t) + size));
  *reinterpret_cast<long*>(block) = count;
  _left += count;
  return block + 1;
}

}  // namespace

// Not inlined: compilers warn about free() after a new-expression.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return fails() ? nullptr : allocate(size, 1);
}
__attribute__((noinline)) void* operator new(std::size_t size) {
  return fails() ? throw std::bad_alloc() : allocate(size, 0);
}
__attribute__((noinline)) void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}
__attribute__((noinline)) void* operator new[](std::size_t size) { return operator new(size); }
__attribute__((noinline)) void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  auto* const whole = static_cast<std::max_align_t*>(block) - 1;
  _left -= *reinterpret_cast<long*>(whole);
  std::free(whole);
}
__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
__attribute__((noinline)) void operator delete[](void* block) noexcept { operator delete(block); }
__attribute__((noinline)) void operator delete[](void* block, std::size_t) noexcept {
  operator delete(block);
}

#ifdef FAILS_MALLOC
extern "C" void* malloc(std::size_t size) noexcept { return fails() ? nullptr : __libc_malloc(size); }
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails() ? nullptr : __libc_calloc(count, size);
}
#endif

void begin_failing(on thread, int number, bool lasting) {
  _is_host = true;
  _countdown = number;
  _lasting = lasting;
  _counted = thread;
}

bool end_failing() {
  _counted = on::no_thread;
  return _failed.exchange(false);
}

long blocks_left() { return _left; }
