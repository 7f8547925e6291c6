// End-to-end tests of veltohub-sim: the simulator runs as a child process
// and this test process uses its files the way the library does.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "tools/hubsim/SimRoot.h"
#include "tools/hubsim/testing/HubSimProcess.h"
#include "tools/signal/LabelFile.h"

namespace velto {
namespace hubsim {
namespace {

const char* kAttrs = "/sys/devices/platform/omap_i2c.4/i2c-4/4-0035/";

struct Attr {
    std::string path;
    std::string read() const {
        const int fd = open(path.c_str(), O_RDONLY);
        if (fd < 0) return "open failed: " + std::string(strerror(errno));
        char buf[64];
        const ssize_t n = ::read(fd, buf, sizeof(buf));
        close(fd);
        return n < 0 ? "read failed" : std::string(buf, static_cast<size_t>(n));
    }
    // 0 or the errno of the failing open or write.
    int write(const std::string& value) const {
        const int fd = open(path.c_str(), O_WRONLY);
        if (fd < 0) return errno;
        const ssize_t n = ::write(fd, value.data(), value.size());
        const int err = n < 0 ? errno : 0;
        close(fd);
        return err;
    }
};

Attr attr(const HubSimProcess& sim, const char* name) {
    return {sim.root() + kAttrs + name};
}

TEST(VeltohubSimTest, ServesItsTreeAndUnmountsOnAStop) {
    HubSimProcess sim;
    std::string error;
    ASSERT_TRUE(sim.start({}, &error)) << error;
    EXPECT_TRUE(sim.mounted());

    // The prepared tree beside the mount.
    EXPECT_EQ(access((sim.root() + "/system/vendor/firmware/veltohub.s19").c_str(), R_OK), 0);
    EXPECT_EQ(access((sim.root() + "/data/system/gaze").c_str(), W_OK), 0);
    EXPECT_EQ(access((sim.root() + "/system/etc/gaze").c_str(), R_OK), 0);
    EXPECT_EQ(attr(sim, "version").read(), "4.2\n");

    std::string stopError;
    EXPECT_TRUE(sim.stop(&stopError)) << stopError;
    EXPECT_FALSE(sim.mounted());
}

TEST(VeltohubSimTest, AttributesBehaveLikeSysfsFiles) {
    HubSimProcess sim;
    std::string error;
    ASSERT_TRUE(sim.start({}, &error)) << error;
    EXPECT_EQ(attr(sim, "don_threshold").write("612"), 0);
    EXPECT_EQ(attr(sim, "don_threshold").read(), "612\n");
    // The hub model's refusals reach the writer as its errno.
    EXPECT_EQ(attr(sim, "current_timestamp").write("1"), EACCES);

    // fopen("w") truncates first; the value still arrives whole.
    {
        std::ofstream out(sim.root() + kAttrs + "wink_max");
        out << "500\n";
    }
    EXPECT_EQ(attr(sim, "wink_max").read(), "500\n");

    // A kept descriptor reads fresh content after lseek(0).
    const int fd = open((sim.root() + kAttrs + "current_timestamp").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char a[32] = {0}, b[32] = {0};
    ASSERT_GT(read(fd, a, sizeof(a) - 1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
    ASSERT_GT(read(fd, b, sizeof(b) - 1), 0);
    close(fd);
    EXPECT_GT(std::stoll(b), std::stoll(a));
}

// Polls for `ms` and tells whether the calling thread slept through it. Each
// pass over the descriptors costs one sleep per FUSE file (its poll request
// goes to the simulator) and the poll takes two passes around its one sleep
// until the timeout. A poller woken for nothing sleeps again and again inside
// the same call, which its result alone cannot show.
int pollSleepingThrough(pollfd* fds, nfds_t count, int ms, bool* sleptThrough) {
    rusage before, after;
    getrusage(RUSAGE_THREAD, &before);
    const int r = poll(fds, count, ms);
    getrusage(RUSAGE_THREAD, &after);
    *sleptThrough = after.ru_nvcsw - before.ru_nvcsw <= static_cast<long>(2 * count + 3);
    return r;
}

TEST(VeltohubSimTest, PollWakesOnDonDoffInterruptAndReadRearms) {
    HubSimProcess sim;
    std::string error;
    HubSimProcess::Options o;
    o.scenario = "wearer baseline 1000\nwearer off-level 150\nstart off\nspontaneous off\n";
    o.speed = 4;
    ASSERT_TRUE(sim.start(o, &error)) << error;
    ASSERT_EQ(attr(sim, "pause").write("0"), 0);
    ASSERT_EQ(attr(sim, "don_doff_enable").write("1"), 0);

    const int fd = open((sim.root() + kAttrs + "don_doff").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char buf[64];
    ASSERT_EQ(read(fd, buf, sizeof(buf)), 2);
    EXPECT_EQ(std::string(buf, 2), "0\n");
    // Nothing to read anywhere yet (the device is not streaming): the poller
    // sleeps through the whole timeout, as the library's event thread must,
    // also when the simulator still holds the poll handles of the last turn.
    const int wink = open((sim.root() + kAttrs + "wink").c_str(), O_RDONLY);
    const int data = open((sim.root() + "/dev/veltohub").c_str(), O_RDONLY);
    ASSERT_GE(wink, 0);
    ASSERT_GE(data, 0);
    pollfd idle[] = {{fd, POLLPRI | POLLERR, 0}, {wink, POLLPRI | POLLERR, 0}, {data, POLLIN, 0}};
    bool sleptThrough = false;
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(pollSleepingThrough(idle, 3, 150, &sleptThrough), 0) << "nothing happened yet";
        EXPECT_TRUE(sleptThrough) << "woken without anything to read, turn " << turn;
    }
    close(wink);
    close(data);
    pollfd p = {fd, POLLPRI | POLLERR, 0};

    EXPECT_EQ(sim.command("don").substr(0, 3), "OK ");
    p.revents = 0;
    ASSERT_EQ(poll(&p, 1, 5000), 1);
    EXPECT_EQ(p.revents & (POLLPRI | POLLERR), POLLPRI | POLLERR);
    ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
    ASSERT_EQ(read(fd, buf, sizeof(buf)), 2);
    EXPECT_EQ(std::string(buf, 2), "1\n");
    // The read re-armed it: no new event, no wake-up.
    p.revents = 0;
    EXPECT_EQ(pollSleepingThrough(&p, 1, 200, &sleptThrough), 0);
    EXPECT_TRUE(sleptThrough);
    close(fd);

    // The label of the don, in hub time, is in the labels file.
    sim.command("doff");
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    std::ifstream in(sim.labelsPath());
    std::stringstream text;
    text << in.rdbuf();
    std::vector<signal::Label> labels;
    signal::ParseError perr;
    ASSERT_TRUE(signal::LabelFile::parse(text.str(), &labels, &perr)) << perr.message;
    ASSERT_GE(labels.size(), 1u);
    EXPECT_EQ(labels[0].kind, signal::LabelKind::Don);
}

TEST(VeltohubSimTest, BlockingReadWaitsForDataAndGivesWayToASignal) {
    HubSimProcess sim;
    std::string error;
    ASSERT_TRUE(sim.start({}, &error)) << error;
    const int fd = open((sim.root() + "/dev/veltohub").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    pollfd p = {fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 100), 0) << "not streaming: nothing to read";

    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = [](int) {};
    sigaction(SIGUSR1, &sa, nullptr);  // no SA_RESTART: the read returns
    ssize_t result = 1;
    int err = 0;
    std::thread reader([&] {
        uint8_t buf[640];
        result = read(fd, buf, sizeof(buf));
        err = errno;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    pthread_kill(reader.native_handle(), SIGUSR1);
    reader.join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(err, EINTR);

    // Streaming on: poll turns readable and a read returns whole packets.
    attr(sim, "pause").write("0");
    attr(sim, "passthru_enable").write("1");
    p.revents = 0;
    ASSERT_EQ(poll(&p, 1, 2000), 1);
    EXPECT_TRUE(p.revents & POLLIN);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    uint8_t buf[25];
    EXPECT_EQ(read(fd, buf, sizeof(buf)), 20) << "as many whole packets as fit";
    close(fd);
}

TEST(VeltohubSimTest, RefusesBadInputAndBusyRootsWithoutMounting) {
    auto run = [](const std::vector<std::string>& args, std::string* err) {
        std::string errFile = "/tmp/veltohub-sim-test-" + std::to_string(getpid()) + ".err";
        std::string cmd = HubSimProcess::binary();
        for (const std::string& a : args) cmd += " '" + a + "'";
        const int status = system((cmd + " 2>" + errFile).c_str());
        std::ifstream in(errFile);
        std::stringstream s;
        s << in.rdbuf();
        *err = s.str();
        unlink(errFile.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    char dir[] = "/tmp/veltohub-sim-bad-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string base = dir;
    const std::string scenario = base + "/bad.txt";
    std::ofstream(scenario) << "seed 1\nat 2s wink\nat 3s sneeze\n";
    std::string err;
    EXPECT_EQ(run({"--root", base + "/r1", "--scenario", scenario}, &err), 2);
    EXPECT_NE(err.find(scenario + ":3: unknown action 'sneeze'"), std::string::npos) << err;
    EXPECT_NE(access((base + "/r1").c_str(), F_OK), 0) << "nothing created";

    const std::string log = base + "/rec.txt";
    std::ofstream(log) << "# header\n1000 500 0\n2000 99999 0\n";
    EXPECT_EQ(run({"--root", base + "/r2", "--replay", log}, &err), 2);
    EXPECT_NE(err.find(log + ":3:"), std::string::npos) << err;

    mkdir((base + "/busy").c_str(), 0755);
    std::ofstream(base + "/busy/file") << "x";
    EXPECT_EQ(run({"--root", base + "/busy"}, &err), 1);
    EXPECT_NE(err.find("holds file"), std::string::npos) << err;
    EXPECT_FALSE(SimRoot::isMountPoint(base + "/busy/.veltohub"));

    // Options are all checked before the root is created.
    EXPECT_EQ(run({"--root", base + "/r3", "--control", base + "/no/dir/socket"}, &err), 2);
    EXPECT_EQ(run({"--root", base + "/r3", "--labels", base}, &err), 2);
    EXPECT_EQ(run({"--root", base + "/r3", "--speed", "0"}, &err), 2);
    EXPECT_EQ(run({"--root", base + "/r3", "--no-such-option"}, &err), 2);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_NE(access((base + "/r3").c_str(), F_OK), 0) << "nothing created";
    EXPECT_EQ(run({"--version"}, &err), 0);

    // A root left by a clean exit serves again, with the library's files kept.
    const std::string quits = base + "/quit.txt";
    std::ofstream(quits) << "at 50ms quit\n";
    EXPECT_EQ(run({"--root", base + "/again", "--scenario", quits}, &err), 0) << err;
    std::ofstream(base + "/again/data/system/gaze/laser_params.txt") << "24.000000\n";
    EXPECT_EQ(run({"--root", base + "/again", "--scenario", quits}, &err), 0) << err;
    EXPECT_EQ(access((base + "/again/data/system/gaze/laser_params.txt").c_str(), F_OK), 0);
    system(("rm -rf '" + base + "'").c_str());

    HubSimProcess sim;
    ASSERT_TRUE(sim.start({}, &err)) << err;
    // Another simulator may not take a mounted directory as its root.
    EXPECT_EQ(run({"--root", SimRoot::mountPoint(sim.root())}, &err), 1);
    EXPECT_NE(err.find("is already mounted"), std::string::npos) << err;
}

// Waits until `pred` holds, polling every 5 ms for at most 30 s: generous, so
// that a loaded machine only makes the wait longer. (The unmount helper of a
// killed simulator once took over 10 s with ctest -j4 at a load of 12.)
template <typename Pred>
bool eventually(Pred pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

bool waitUnmounted(const std::string& mountPoint) {
    return eventually([&] { return !SimRoot::isMountPoint(mountPoint); });
}

TEST(VeltohubSimTest, NeverLeavesAMountBehind) {
    // Every simulator starting on this machine detaches every dead mount it
    // sees, including the one this test leaves on purpose. In a mount
    // namespace of its own (when we may make one) only our simulators see it.
    if (unshare(CLONE_NEWNS) == 0) mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);

    // Killed outright: the auto_unmount helper unmounts.
    HubSimProcess sim;
    std::string err;
    ASSERT_TRUE(sim.start({}, &err)) << err;
    ASSERT_TRUE(sim.mounted());
    kill(sim.pid(), SIGKILL);
    EXPECT_TRUE(waitUnmounted(SimRoot::mountPoint(sim.root())));

    // Killed together with its unmount helper (as a test runner does with a
    // whole process tree): the next simulator detaches the dead mount.
    HubSimProcess victim;
    ASSERT_TRUE(victim.start({}, &err)) << err;
    std::vector<pid_t> children;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* e = readdir(proc)) {
            std::ifstream stat(std::string("/proc/") + e->d_name + "/stat");
            std::string pid, comm, state;
            pid_t ppid = 0;
            if (stat >> pid >> comm >> state >> ppid && ppid == victim.pid())
                children.push_back(std::stoi(pid));
        }
        closedir(proc);
    }
    ASSERT_FALSE(children.empty()) << "the auto_unmount helper";
    for (pid_t c : children) kill(c, SIGKILL);
    kill(victim.pid(), SIGKILL);
    const std::string dead = SimRoot::mountPoint(victim.root());
    // Dead once its connection is gone, however long the kill takes.
    ASSERT_TRUE(eventually([&] {
        struct stat st;
        return stat(dead.c_str(), &st) != 0 && errno == ENOTCONN;
    }));
    ASSERT_TRUE(SimRoot::isMountPoint(dead));
    HubSimProcess next;
    ASSERT_TRUE(next.start({}, &err)) << err;
    EXPECT_TRUE(waitUnmounted(dead));
    // The sweep runs beside the start and reports after it detached.
    const std::string said = "detached the mount of a dead simulator at " + dead;
    EXPECT_TRUE(eventually([&] { return next.errorOutput().find(said) != std::string::npos; }))
            << next.errorOutput();

    // The process that started it ends: the simulator follows.
    char dir[] = "/tmp/veltohub-sim-orphan-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string root = std::string(dir) + "/root";
    const std::string cmd =
            "sh -c '" + HubSimProcess::binary() + " --root " + root + " & sleep 0.5'";
    ASSERT_EQ(system(cmd.c_str()), 0);
    EXPECT_TRUE(waitUnmounted(SimRoot::mountPoint(root)));
    EXPECT_TRUE(eventually([&] { return access((root + "/dev/veltohub").c_str(), F_OK) != 0; }))
            << "cleaned up after itself";
    system(("rm -rf '" + std::string(dir) + "'").c_str());
}

}  // namespace
}  // namespace hubsim
}  // namespace velto
