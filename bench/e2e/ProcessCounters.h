#ifndef VELTO_BENCH_E2E_PROCESSCOUNTERS_H
#define VELTO_BENCH_E2E_PROCESSCOUNTERS_H

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace velto {
namespace bench {

// What the kernel counted for a process so far: CPU time (user + system) and
// context switches of its live threads. Two readings apart make a window.
struct ProcessCounters {
    int64_t cpuNs = 0;
    int64_t voluntarySwitches = 0;    // the thread slept (a wake-up follows)
    int64_t involuntarySwitches = 0;  // the thread was preempted

    // Reads /proc/PID (0: this process), leaving out the thread `excludeTid`
    // (0: none). False when the process is gone.
    static bool read(pid_t pid, ProcessCounters* out, pid_t excludeTid = 0);
    ProcessCounters operator-(const ProcessCounters& earlier) const;
};

// Counts the system calls of a process for `seconds` with `strace -c -f`:
// the total number of calls, or -1 (with the reason) when strace cannot run.
// With `table`, strace's table of calls by name is copied there.
int64_t countSystemCalls(pid_t pid, double seconds, std::string* error, const std::string& table = "");

// CLOCK_MONOTONIC in ns, the clock of the simulator's readable log and of
// the service's event times.
int64_t monotonicNowNs();

}  // namespace bench
}  // namespace velto

#endif  // VELTO_BENCH_E2E_PROCESSCOUNTERS_H
