// Counts all allocations of a process into which this library is preloaded.
#include <malloc.h>

#include <atomic>
#include <cstddef>

namespace {

std::atomic<long> _allocations{0};
std::atomic<long> _bytes{0};

void* counted(void* block) {
  ++_allocations;
  _bytes += static_cast<long>(malloc_usable_size(block));
  return block;
}

void released(void* block) { _bytes -= static_cast<long>(malloc_usable_size(block)); }

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) { return counted(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return counted(__libc_calloc(count, size)); }
void* realloc(void* block, std::size_t size) {
  released(block);
  return counted(__libc_realloc(block, size));
}
void free(void* block) {
  released(block);
  __libc_free(block);
}

long yusb_heap_allocations() { return _allocations; }
long yusb_heap_bytes() { return _bytes; }
}
