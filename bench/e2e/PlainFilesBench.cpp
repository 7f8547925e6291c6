// bench_e2e_plain: the service's per-sample cost on plain kernel files, as a
// device's driver files cost: a FIFO as the data device, regular files as the
// attributes and the wake-lock files. Against veltohub-sim every poll, read
// and write of the hub's files is a round trip to the simulator through FUSE,
// which a device's sysfs and character device do not make; this run leaves
// that out. Double blink and look at screen classify every sample.
//
//   bench_e2e_plain [--seconds S]
#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include "bench/e2e/ProcessCounters.h"
#include "sensor/VeltohubTestHub.h"
#include "service/GazeService.h"
#include "tools/cli/ToolCli.h"
#include "tools/signal/EyeSignalModel.h"

using namespace velto;
typedef GazeServiceInterface G;

namespace {

void dropLogLine(const struct __android_logger_data*, const char*) {}

pid_t threadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

// Writes one packet of a blinking wearer every 31.25 ms into the FIFO.
class Feeder {
public:
    explicit Feeder(int fd) : mFd(fd) {
        mThread = std::thread([this] { run(); });
        while (mTid.load() == 0) usleep(1000);
    }
    ~Feeder() {
        mStop.store(true);
        mThread.join();
    }
    pid_t tid() const { return mTid.load(); }
    long long written() const { return mWritten.load(); }

private:
    void run() {
        mTid.store(threadId());
        signal::WearerProfile wearer;
        wearer.wornBaseline = 1300;
        signal::EyeSignalModel model(wearer, 21, 0, true);
        timespec next;
        clock_gettime(CLOCK_MONOTONIC, &next);
        for (int64_t t = 6000000000; !mStop.load(); t += 31250000) {  // after the hub clock's 5 s
            const std::string p = test::PlainFileHub::packet(static_cast<uint64_t>(t), model.sample(t));
            if (write(mFd, p.data(), p.size()) == static_cast<ssize_t>(p.size())) mWritten.fetch_add(1);
            next.tv_nsec += 31250000;
            if (next.tv_nsec >= 1000000000) {
                next.tv_nsec -= 1000000000;
                ++next.tv_sec;
            }
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        }
    }

    int mFd;
    std::atomic<bool> mStop{false};
    std::atomic<pid_t> mTid{0};
    std::atomic<long long> mWritten{0};
    std::thread mThread;
};

// Both threads that are not the service's: the measuring one and the feeder.
bench::ProcessCounters serviceCounters(pid_t a, pid_t b) {
    bench::ProcessCounters all, one, two;
    bench::ProcessCounters::read(0, &all);
    bench::ProcessCounters::read(0, &one, a);
    bench::ProcessCounters::read(0, &two, b);
    // one = all - a, two = all - b, so one + two - all = all - a - b.
    bench::ProcessCounters out;
    out.cpuNs = one.cpuNs + two.cpuNs - all.cpuNs;
    out.voluntarySwitches = one.voluntarySwitches + two.voluntarySwitches - all.voluntarySwitches;
    out.involuntarySwitches = one.involuntarySwitches + two.involuntarySwitches - all.involuntarySwitches;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"bench_e2e_plain: the service's cost per sample on plain kernel files instead of the simulator"};
    double seconds = 20;
    app.add_option("--seconds", seconds, "Length of the window")->check(CLI::Range(5.0, 3600.0));
    tools::addVersionFlag(app, "bench_e2e_plain");
    const int parsed = tools::parseCommandLine(app, "bench_e2e_plain", argc, argv);
    if (parsed >= 0) return parsed;

    __android_log_set_logger(dropLogLine);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    char root[] = "/tmp/velto-bench-plain-XXXXXX";
    if (mkdtemp(root) == nullptr) {
        perror("bench_e2e_plain: mkdtemp");
        return 1;
    }
    setenv("VELTOGAZE_ROOT", root, 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", "0", 1);
    setenv("VELTOGAZE_SERIAL", "G1", 1);
    const std::string base = root;
    test::PlainFileHub hub;
    test::PlainFileHub::writeImage("S10584800307EF");  // the hub's own version: nothing to flash
    test::makeDirs(base + "/system/etc");
    test::makeDirs(base + "/data/system/gaze");
    if (symlink(VELTO_BENCH_GAZE_ETC, (base + "/system/etc/gaze").c_str()) != 0 ||
        !test::writeFile(base + "/data/system/gaze/laser_params.txt", "120\n")) {
        fprintf(stderr, "bench_e2e_plain: cannot prepare %s\n", root);
        return 1;
    }
    const std::string device = test::underRoot(VeltohubProximitySensor::kDataDevicePath);
    test::makeDirs(device.substr(0, device.rfind('/')));
    mkfifo(device.c_str(), 0600);
    // Opened read-write first, so the sensor's read-only open does not wait.
    const int fd = open(device.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) {
        perror("bench_e2e_plain: the FIFO");
        return 1;
    }
    Feeder feeder(fd);

    GazeService* service = GazeService::getInstance();
    if (!service->start() || !service->loadCalibrationForGesture(G::LOOK_AT_SCREEN) ||
        !service->startGestureDetector(G::DOUBLE_BLINK, false, -1) ||
        !service->startGestureDetector(G::LOOK_AT_SCREEN, false, -1)) {
        fprintf(stderr, "bench_e2e_plain: the service or a detector did not start\n");
        return 1;
    }
    sleep(3);
    const pid_t self = threadId();
    const bench::ProcessCounters before = serviceCounters(self, feeder.tid());
    const long long written = feeder.written();
    usleep(static_cast<useconds_t>(seconds * 1e6));
    const bench::ProcessCounters d = serviceCounters(self, feeder.tid()) - before;
    const double samples = std::max(1LL, feeder.written() - written);
    std::string error;
    const long long w0 = feeder.written();
    const int64_t calls = bench::countSystemCalls(getpid(), 5, &error);
    const double straceSamples = std::max(1LL, feeder.written() - w0);
    service->stop();

    printf("| Figure, plain kernel files instead of the simulator | Goal | Measured | |\n|---|---|---|---|\n");
    const double cpuUs = d.cpuNs / 1e3 / samples;
    printf("| service CPU per streamed sample (double blink + look at screen) | <= 30 us | %.1f us | %s |\n", cpuUs,
           cpuUs <= 30 ? "met" : "MISSED");
    printf("| service wake-ups (context switches) per streamed sample | - | %.2f | |\n",
           (d.voluntarySwitches + d.involuntarySwitches) / samples);
    // The feeder's write and sleep are in the count: two per sample.
    if (calls >= 0) {
        printf("| service system calls per streamed sample (strace -c -f, less the feeder's 2) | - | %.2f | |\n",
               calls / straceSamples - 2);
    } else {
        printf("| service system calls per streamed sample | - | not measured (%s) | |\n", error.c_str());
    }
    close(fd);
    const std::string cleanup = std::string("rm -rf '") + root + "'";
    return system(cleanup.c_str()) == 0 ? 0 : 1;
}
