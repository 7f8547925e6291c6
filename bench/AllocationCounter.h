#ifndef VELTO_BENCH_ALLOCATION_COUNTER_H
#define VELTO_BENCH_ALLOCATION_COUNTER_H

#include <stdint.h>

namespace velto {
namespace bench {

// Counts every malloc, calloc and realloc of the process (operator new and
// the platform's Vector storage both end there). Linked into the benchmarks
// so each case can prove that its timed loop allocates nothing.
uint64_t allocationCount();

}  // namespace bench
}  // namespace velto

// Runs `loop` and reports its allocations as the "allocs" counter; a loop that
// allocates fails the case.
#define VELTO_BENCH_NO_ALLOC(state, loop)                                                \
    do {                                                                                 \
        const uint64_t veltoAllocsBefore = ::velto::bench::allocationCount();           \
        loop;                                                                            \
        const uint64_t veltoAllocs = ::velto::bench::allocationCount() - veltoAllocsBefore; \
        (state).counters["allocs"] = static_cast<double>(veltoAllocs);                  \
        if (veltoAllocs != 0) (state).SkipWithError("the timed loop allocated memory");  \
    } while (0)

#endif  // VELTO_BENCH_ALLOCATION_COUNTER_H
