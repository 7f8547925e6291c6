#include "bench/AllocationCounter.h"

#include <stddef.h>

#include <atomic>

// glibc's own entry points, which the wrappers below forward to.
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t n, size_t size);
extern "C" void* __libc_realloc(void* ptr, size_t size);

namespace {
std::atomic<uint64_t> gAllocations{0};
}

extern "C" void* malloc(size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t n, size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}

extern "C" void* realloc(void* ptr, size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(ptr, size);
}

namespace velto {
namespace bench {

uint64_t allocationCount() { return gAllocations.load(std::memory_order_relaxed); }

}  // namespace bench
}  // namespace velto
