// bench_e2e: the cost of the service end to end, against veltohub-sim at the
// real 32 Hz. The service runs in this process as a client runs it; the
// simulator is a child process. Prints one table with the goal beside each
// figure (see docs/performance.md).
//
//   bench_e2e [--seconds S] [--idle-seconds S] [--no-strace] [--strace-table FILE] [--no-hub-recovery] [--json]
//
// Exit status: 0 when it measured (whether or not every goal is met), 1 when
// the simulator or the service could not be brought up.
#include <android/log.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <unordered_map>
#include <vector>

#include "bench/e2e/ProcessCounters.h"
#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tools/cli/ToolCli.h"
#include "tools/hubsim/testing/HubSimProcess.h"

using namespace velto;
using velto::bench::ProcessCounters;
typedef GazeServiceInterface G;

namespace {

std::atomic<long long> gLogLines{0};

// The log of a device goes to logd, one write per line; here the line is
// formatted (that cost is the library's) and counted, not written.
void countLogLine(const struct __android_logger_data*, const char*) { gLogLines.fetch_add(1); }

// The first data listener: it notes which sample is being dispatched, so a
// gesture reported while the modules handle it can be traced to its packet.
struct SampleTag : public ProximitySensorInterface::ProxDataListener {
    std::atomic<int64_t> current{0};
    std::atomic<long long> count{0};
    void onProxData(const ProxData& data) override {
        current.store(data.mTimestampNanos, std::memory_order_relaxed);
        count.fetch_add(1, std::memory_order_relaxed);
    }
};

struct Detection {
    G::EyeGesture gesture;
    int64_t sampleNs;    // hub time stamp of the packet being handled
    int64_t callbackNs;  // CLOCK_MONOTONIC when the callback ran
};

struct Client : public G::GazeListenerInterface {
    SampleTag* tag = nullptr;
    std::atomic<bool> recording{false};
    std::mutex lock;
    std::vector<Detection> detections;
    void onEyeGesture(G::EyeGesture g, int64_t, int64_t) override {
        const int64_t now = bench::monotonicNowNs();
        if (!recording.load() || tag == nullptr) return;
        std::lock_guard<std::mutex> l(lock);
        detections.push_back({g, tag->current.load(std::memory_order_relaxed), now});
    }
};

void sleepSeconds(double s) { usleep(static_cast<useconds_t>(s * 1e6)); }

bool command(hubsim::HubSimProcess& sim, const std::string& line) {
    for (int i = 0; i < 100; ++i) {
        if (sim.command(line).compare(0, 2, "OK") == 0) return true;
        usleep(20000);
    }
    fprintf(stderr, "bench_e2e: the simulator refused \"%s\"\n", line.c_str());
    return false;
}

// Gestures from `from` seconds of hub time on, one every 3.5 s, cycling
// through double blink, wink and a look at the display.
std::string scenarioText(double from, double until) {
    std::ostringstream s;
    s << "seed 21\nwearer baseline 1300\nwearer blink-rate 15\nwearer noise 6\n"
         "wearer blink-amp 110\nwearer wink-amp 260\nwearer look-shift 140\n"
         "wearer sample-loss-per-hour 0\n";
    const char* gestures[] = {"double-blink", "wink 500ms", "look 2s"};
    int i = 0;
    for (double t = from; t < until; t += 3.5, ++i) s << "at " << t << "s " << gestures[i % 3] << "\n";
    return s.str();
}

// "HUB_NS MONOTONIC_NS" lines of the simulator.
std::unordered_map<int64_t, int64_t> readReadableLog(const std::string& path) {
    std::unordered_map<int64_t, int64_t> out;
    std::ifstream in(path);
    long long hub = 0, mono = 0;
    while (in >> hub >> mono) out[hub] = mono;
    return out;
}

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return -1;
    std::sort(v.begin(), v.end());
    size_t rank = static_cast<size_t>(p / 100.0 * static_cast<double>(v.size()) + 0.999999);
    rank = std::max<size_t>(1, std::min(rank, v.size()));
    return v[rank - 1];
}

struct Row {
    std::string key;
    std::string figure;
    std::string goal;
    std::string measured;
    bool met;
    bool hasGoal;
};

std::string fmt(const char* f, double v) {
    char buf[64];
    snprintf(buf, sizeof(buf), f, v);
    return buf;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"bench_e2e: CPU, wake-ups, system calls and latency of the service against veltohub-sim at 32 Hz"};
    double seconds = 30, idleSeconds = 20, straceSeconds = 10;
    bool json = false, noStrace = false, noHubRecovery = false;
    std::string straceTable;
    app.add_option("--seconds", seconds, "Length of the streaming window")->check(CLI::Range(5.0, 3600.0));
    app.add_option("--idle-seconds", idleSeconds, "Length of the idle window (DON only)")->check(CLI::Range(5.0, 3600.0));
    app.add_flag("--no-strace", noStrace, "Do not count system calls");
    app.add_option("--strace-table", straceTable, "Write strace's table of system calls by name to this file");
    app.add_flag("--no-hub-recovery", noHubRecovery, "Run the sensor without hub recovery (the plain driver)");
    app.add_flag("--json", json, "Print the figures as one JSON object");
    tools::addVersionFlag(app, "bench_e2e");
    const int parsed = tools::parseCommandLine(app, "bench_e2e", argc, argv);
    if (parsed >= 0) return parsed;

    __android_log_set_logger(countLogLine);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);

    // Calibration needs about 25 s of hub time; the streaming window starts
    // after it, and gestures go on through the system-call window.
    const double calibratedBy = 30;
    const double gesturesUntil = calibratedBy + seconds + straceSeconds + 5;
    char dir[] = "/tmp/velto-bench-e2e-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        perror("bench_e2e: mkdtemp");
        return 1;
    }
    const std::string readablePath = std::string(dir) + "/readable.txt";
    hubsim::HubSimProcess sim;
    hubsim::HubSimProcess::Options options;
    options.scenario = scenarioText(calibratedBy, gesturesUntil);
    options.extraArgs = {"--readable-log", readablePath};
    std::string error;
    const int64_t simStart = bench::monotonicNowNs();
    if (!sim.start(options, &error)) {
        fprintf(stderr, "bench_e2e: %s\n", error.c_str());
        return 1;
    }
    setenv("VELTOGAZE_ROOT", sim.root().c_str(), 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", "0", 1);
    setenv("VELTOGAZE_SERIAL", "G1", 1);

    // As gazectl runs the service, unless asked for the plain driver.
    VeltohubProximitySensor::setHubRecoveryEnabled(!noHubRecovery);
    GazeService* service = GazeService::getInstance();
    android::sp<Client> client = new Client();
    service->setGazeListener(client);
    if (!service->start()) {
        fprintf(stderr, "bench_e2e: the service did not start\n");
        return 1;
    }
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();

    // Calibrations, as a first-time wearer does them.
    fprintf(stderr, "bench_e2e: calibrating (about %.0f s)\n", calibratedBy);
    bool calibrated = service->startCalibrationIntervalForGesture(G::WINK);
    for (int i = 0; calibrated && i < 4 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        sleepSeconds(1.0);
        calibrated = command(sim, "wink 500ms");
        sleepSeconds(2.0);
    }
    calibrated = calibrated && service->isCalibrationCompleteForGesture(G::WINK) &&
                 service->endCalibrationIntervalForGesture(G::WINK) &&
                 service->applyAndSaveCalibrationForGesture(G::WINK) &&
                 service->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN);
    sleepSeconds(1.0);
    calibrated = calibrated && command(sim, "look 3s");
    sleepSeconds(5.0);
    calibrated = calibrated && service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN) &&
                 service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN) &&
                 service->loadCalibrationForGesture(G::LOOK_AT_SCREEN);
    if (!calibrated) {
        fprintf(stderr, "bench_e2e: calibration failed\n");
        return 1;
    }

    // Streaming: double blink and look at screen classify every sample, the
    // wink module waits in low-power mode for the hub's interrupt.
    SampleTag tag;
    client->tag = &tag;
    sensor->addProxDataListener(&tag);
    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        if (!service->startGestureDetector(g, false, -1)) {
            fprintf(stderr, "bench_e2e: cannot start %s\n", GazeService::eyeGestureAsString8(g).string());
            return 1;
        }
    }
    const double startIn = calibratedBy - (bench::monotonicNowNs() - simStart) / 1e9;
    sleepSeconds(std::max(1.0, startIn));
    fprintf(stderr, "bench_e2e: streaming window (%.0f s)\n", seconds);

    // The figures of this process leave out the thread that measures.
    const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
    ProcessCounters svc0, svc1, sim0, sim1;
    ProcessCounters::read(0, &svc0, self);
    ProcessCounters::read(sim.pid(), &sim0);
    const long long samples0 = tag.count.load(), logs0 = gLogLines.load();
    client->recording = true;
    sleepSeconds(seconds);
    client->recording = false;
    ProcessCounters::read(0, &svc1, self);
    ProcessCounters::read(sim.pid(), &sim1);
    const long long samples = tag.count.load() - samples0, logLines = gLogLines.load() - logs0;
    const ProcessCounters svc = svc1 - svc0, simCost = sim1 - sim0;

    int64_t syscalls = -1;
    long long straceSamples = 0;
    if (!noStrace) {
        fprintf(stderr, "bench_e2e: counting system calls (%.0f s)\n", straceSeconds);
        const long long before = tag.count.load();
        syscalls = bench::countSystemCalls(getpid(), straceSeconds, &error, straceTable);
        straceSamples = tag.count.load() - before;
        if (syscalls < 0) fprintf(stderr, "bench_e2e: %s\n", error.c_str());
    }

    // Idle: only the don/doff module, which waits for the hub's interrupt.
    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) service->stopGestureDetector(g);
    sensor->removeProxDataListener(&tag);
    client->tag = nullptr;
    service->startGestureDetector(G::DON, false, -1);
    sleepSeconds(2.0);
    fprintf(stderr, "bench_e2e: idle window, DON only (%.0f s)\n", idleSeconds);
    ProcessCounters idle0, idle1;
    ProcessCounters::read(0, &idle0, self);
    sleepSeconds(idleSeconds);
    ProcessCounters::read(0, &idle1, self);
    const ProcessCounters idle = idle1 - idle0;
    service->stop();
    sim.stop();

    // Latency: from the moment the simulator made the packet readable to the
    // callback of the detection made while that packet was handled.
    const auto readable = readReadableLog(readablePath);
    std::vector<double> latencyMs;
    size_t untraced = 0;
    for (const Detection& d : client->detections) {
        auto it = readable.find(d.sampleNs);
        if (it == readable.end()) {
            ++untraced;
            continue;
        }
        latencyMs.push_back((d.callbackNs - it->second) / 1e6);
    }
    std::remove(readablePath.c_str());
    rmdir(dir);

    const double n = std::max(1LL, samples);
    const double cpuUs = svc.cpuNs / 1e3 / n;
    const double wakeups = (svc.voluntarySwitches + svc.involuntarySwitches) / n;
    const double simCore = simCost.cpuNs / 1e9 / seconds * 100;
    const double median = percentile(latencyMs, 50), p99 = percentile(latencyMs, 99);
    const double idleWakeups = (idle.voluntarySwitches + idle.involuntarySwitches) / idleSeconds;
    const double idleCore = idle.cpuNs / 1e9 / idleSeconds * 100;
    const double perSyscall = syscalls >= 0 && straceSamples > 0 ? static_cast<double>(syscalls) / straceSamples : -1;

    std::vector<Row> rows = {
            {"cpu_us_per_sample", "service CPU per streamed sample (double blink + look at screen, wink low-power)",
             "<= 30 us", fmt("%.1f us", cpuUs) + fmt(" (%.2f %% of a core)", cpuUs * 32 / 1e4), cpuUs <= 30, true},
            {"wakeups_per_sample", "service wake-ups (context switches) per streamed sample", "-",
             fmt("%.2f", wakeups), true, false},
            {"syscalls_per_sample", "service system calls per streamed sample (strace -c -f)", "-",
             perSyscall < 0 ? "not measured" : fmt("%.2f", perSyscall), true, false},
            {"sim_core_percent", "veltohub-sim CPU meanwhile", "<= 1 % of a core", fmt("%.2f %%", simCore),
             simCore <= 1, true},
            {"latency_ms", "readable packet -> detection callback, median / p99",
             "<= 1 ms / <= 5 ms",
             latencyMs.empty() ? "no detection traced"
                               : fmt("%.3f ms", median) + fmt(" / %.3f ms", p99) +
                                         fmt(" (n=%.0f)", static_cast<double>(latencyMs.size())),
             !latencyMs.empty() && median <= 1 && p99 <= 5, true},
            {"idle_wakeups_per_second", "idle, DON only, no data listener: wake-ups per second", "<= 1",
             fmt("%.2f", idleWakeups), idleWakeups <= 1, true},
            {"idle_core_percent", "idle, DON only: service CPU", "about 0", fmt("%.3f %% of a core", idleCore),
             idleCore < 0.1, true},
            {"log_lines_per_sample", "log lines per streamed sample (formatted, not written)", "-",
             fmt("%.3f", logLines / n), true, false},
    };
    if (json) {
        printf("{\"samples\": %lld, \"seconds\": %.0f, \"cpu_us_per_sample\": %.3f, \"wakeups_per_sample\": %.3f, "
               "\"syscalls_per_sample\": %.3f, \"sim_core_percent\": %.3f, \"latency_ms_median\": %.3f, "
               "\"latency_ms_p99\": %.3f, \"detections\": %zu, \"untraced\": %zu, "
               "\"idle_wakeups_per_second\": %.3f, \"idle_core_percent\": %.4f, \"log_lines_per_sample\": %.4f}\n",
               samples, seconds, cpuUs, wakeups, perSyscall, simCore, median, p99, latencyMs.size(), untraced,
               idleWakeups, idleCore, logLines / n);
        return 0;
    }
    printf("%lld samples streamed in %.0f s; %zu detections traced", samples, seconds, latencyMs.size());
    if (untraced > 0) printf(" (%zu not traced to a packet)", untraced);
    printf("\n\n| Figure | Goal | Measured | |\n|---|---|---|---|\n");
    for (const Row& r : rows) {
        printf("| %s | %s | %s | %s |\n", r.figure.c_str(), r.goal.c_str(), r.measured.c_str(),
               !r.hasGoal ? "" : r.met ? "met" : "MISSED");
    }
    return 0;
}
