#include "bench/e2e/ProcessCounters.h"

#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace velto {
namespace bench {

namespace {

// The voluntary and involuntary context switches of one thread.
void addSwitches(const std::string& statusPath, ProcessCounters* out) {
    std::ifstream in(statusPath);
    std::string line;
    while (std::getline(in, line)) {
        long long n = 0;
        if (sscanf(line.c_str(), "voluntary_ctxt_switches: %lld", &n) == 1) out->voluntarySwitches += n;
        if (sscanf(line.c_str(), "nonvoluntary_ctxt_switches: %lld", &n) == 1) out->involuntarySwitches += n;
    }
}

}  // namespace

bool ProcessCounters::read(pid_t pid, ProcessCounters* out, pid_t excludeTid) {
    *out = ProcessCounters();
    const std::string base = pid == 0 ? std::string("/proc/self") : "/proc/" + std::to_string(pid);
    DIR* tasks = opendir((base + "/task").c_str());
    if (tasks == nullptr) return false;
    while (dirent* e = readdir(tasks)) {
        if (e->d_name[0] == '.' || atoi(e->d_name) == excludeTid) continue;
        const std::string task = base + "/task/" + e->d_name;
        // schedstat's first field: the time the thread ran, in ns (the tick
        // counts of stat are 10 ms coarse).
        std::ifstream sched(task + "/schedstat");
        long long ranNs = 0;
        if (sched >> ranNs) out->cpuNs += ranNs;
        addSwitches(task + "/status", out);
    }
    closedir(tasks);
    return true;
}

ProcessCounters ProcessCounters::operator-(const ProcessCounters& earlier) const {
    ProcessCounters d;
    d.cpuNs = cpuNs - earlier.cpuNs;
    d.voluntarySwitches = voluntarySwitches - earlier.voluntarySwitches;
    d.involuntarySwitches = involuntarySwitches - earlier.involuntarySwitches;
    return d;
}

int64_t countSystemCalls(pid_t pid, double seconds, std::string* error, const std::string& table) {
    char out[] = "/tmp/velto-bench-strace-XXXXXX";
    const int fd = mkstemp(out);
    if (fd < 0) {
        *error = std::string("mkstemp: ") + strerror(errno);
        return -1;
    }
    close(fd);
    const pid_t child = fork();
    if (child == 0) {
        const std::string target = std::to_string(pid);
        execlp("strace", "strace", "-c", "-f", "-q", "-o", out, "-p", target.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    if (child < 0) {
        *error = std::string("fork: ") + strerror(errno);
        unlink(out);
        return -1;
    }
    // strace attaches within a moment; the window starts after that.
    usleep(300000);
    usleep(static_cast<useconds_t>(seconds * 1e6));
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    std::ifstream in(out);
    std::string line;
    int64_t total = -1;
    std::ofstream copy;
    if (!table.empty()) copy.open(table);
    while (std::getline(in, line)) {
        if (copy.is_open()) copy << line << '\n';
        // "100.00    0.001234          12       100         3 total"
        if (line.find("total") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string percent, seconds, usecsPerCall, calls;
        if (fields >> percent >> seconds >> usecsPerCall >> calls) total = std::atoll(calls.c_str());
    }
    unlink(out);
    if (total < 0) *error = WIFEXITED(status) && WEXITSTATUS(status) == 127 ? "strace is not installed" : "strace printed no total";
    return total;
}

int64_t monotonicNowNs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<int64_t>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

}  // namespace bench
}  // namespace velto
