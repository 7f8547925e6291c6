// veltohub-sim: a simulated sensor hub that the library runs against
// unmodified. See docs/hubsim.md.
//
//   veltohub-sim --root DIR [--scenario FILE | --replay LOG] [--speed X]
//                [--control SOCKET] [--labels OUT] [--readable-log OUT]
//
// Exit status: 0 after a clean shutdown (SIGTERM, SIGHUP, "quit"), 130 after
// SIGINT (also unmounted cleanly), 1 when the root cannot be used or the mount
// fails, 2 for bad usage or bad input (the options, the scenario, the
// recording, its labels or the firmware image); nothing is mounted in either
// failure case, and the root is not touched before every option is checked.
#include <limits.h>
#include <signal.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "tools/cli/ToolCli.h"
#include "tools/common/InstalledData.h"
#include "tools/hubsim/ControlServer.h"
#include "tools/hubsim/HubFileSystem.h"
#include "tools/hubsim/SimRoot.h"
#include "tools/signal/LabelFile.h"
#include "tools/signal/Recording.h"

using namespace velto;
using namespace velto::hubsim;

namespace {

bool readFile(const std::string& path, std::string* text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream s;
    s << in.rdbuf();
    *text = s.str();
    return true;
}

bool exists(const std::string& path) {
    return access(path.c_str(), R_OK) == 0;
}

// Bad input: one message naming the file and line, status 2.
int badInput(const std::string& file, int line, const std::string& message) {
    if (line > 0) {
        fprintf(stderr, "veltohub-sim: %s:%d: %s\n", file.c_str(), line, message.c_str());
    } else {
        fprintf(stderr, "veltohub-sim: %s: %s\n", file.c_str(), message.c_str());
    }
    return 2;
}

bool isDirectory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The signal that ended the session loop; SIGINT makes the exit status 130.
std::atomic<int> gStopSignal{0};
std::atomic<fuse_session*> gSession{nullptr};

// Written by the stop handler so that the stop watcher wakes up.
int gStopPipe[2] = {-1, -1};

void onStopSignal(int sig) {
    gStopSignal.store(sig);
    fuse_session* session = gSession.load();
    if (session != nullptr) fuse_session_exit(session);
    if (gStopPipe[1] >= 0) {
        const char byte = 1;
        (void)!write(gStopPipe[1], &byte, 1);
    }
}

// Runs `fn` on a new thread that does not take the termination signals, so
// they reach libfuse's threads, whose handlers end the session loop.
std::thread quietThread(std::function<void()> fn) {
    sigset_t block, old;
    sigemptyset(&block);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&block, s);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    std::thread t(std::move(fn));
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return t;
}

}  // namespace

int main(int argc, char** argv) {
    // Never outlive the process that started us (tests, scripts).
    prctl(PR_SET_PDEATHSIG, SIGTERM);

    CLI::App app{"Simulated Veltohub sensor hub (FUSE)."};
    std::string root, scenarioFile, replayFile, controlPath, labelsPath, readablePath;
    // Installed, the shipped files are in ../share/veltogaze beside the
    // program; in the build tree, the build's image and the source's files.
    std::string firmwarePath, gazeEtc = tools::findInstalledData("gaze", VELTO_HUBSIM_GAZE_ETC);
    double speed = 1.0;
    int readyFd = -1;
    bool verbose = false, paced = false;
    app.add_option("--root", root, "Directory that stands in for / (empty or missing)")->required();
    auto* scenarioOpt = app.add_option("--scenario", scenarioFile, "Scenario file");
    app.add_option("--replay", replayFile, "Raw-data log to replay")->excludes(scenarioOpt);
    app.add_option("--speed", speed, "Hub clock rate relative to the wall clock")
            ->check(CLI::Range(0.001, 100000.0));
    app.add_flag("--paced", paced,
                 "Hold the hub clock while the data FIFO is nearly full instead of losing packets (for tests)");
    app.add_option("--control", controlPath, "Unix socket for control commands");
    app.add_option("--labels", labelsPath, "Write the ground-truth labels here");
    app.add_option("--readable-log", readablePath,
                   "Write \"HUB_NS MONOTONIC_NS\" when packets become readable (for latency benchmarks)");
    app.add_option("--firmware", firmwarePath, "Firmware image to ship (default: the build's)");
    app.add_option("--gaze-etc", gazeEtc, "Directory of detector files to copy to system/etc/gaze");
    app.add_option("--ready-fd", readyFd, "Write \"ready\" to this descriptor once mounted");
    app.add_flag("-v,--verbose", verbose, "Say what is happening");
    tools::addVersionFlag(app, "veltohub-sim");
    const int parsed = tools::parseCommandLine(app, "veltohub-sim", argc, argv);
    if (parsed >= 0) return parsed;
    auto usage = [](const std::string& reason) { return tools::usageError("veltohub-sim", reason); };
    std::string reason;
    if (!controlPath.empty()) {
        if (controlPath.size() >= sizeof(sockaddr_un::sun_path))
            return usage("--control: the socket path is longer than " +
                         std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " bytes");
        if (!tools::isWritableFilePath(controlPath, &reason)) return usage("--control: " + reason);
    }
    if (!labelsPath.empty() && !tools::isWritableFilePath(labelsPath, &reason)) return usage("--labels: " + reason);
    if (!readablePath.empty() && !tools::isWritableFilePath(readablePath, &reason))
        return usage("--readable-log: " + reason);
    if (!isDirectory(gazeEtc)) return usage("--gaze-etc: " + gazeEtc + " is not a directory");
    if (readyFd >= 0 && fcntl(readyFd, F_GETFD) < 0) return usage("--ready-fd: " + std::to_string(readyFd) + " is not open");
    if (readyFd < -1) return usage("--ready-fd: " + std::to_string(readyFd) + " is not a descriptor");
    if (!SimRoot::isUsable(root, &reason)) {
        fprintf(stderr, "veltohub-sim: %s\n", reason.c_str());
        return 1;
    }

    // All input is read and checked before anything is created or mounted.
    if (firmwarePath.empty()) {
        firmwarePath = tools::executableDir() + "/../etc/veltohub.s19";
        if (!exists(firmwarePath)) firmwarePath = tools::findInstalledData("firmware/veltohub.s19", VELTO_HUBSIM_FIRMWARE);
    }
    std::string text;
    FirmwareImage image;
    int badLine = 0;
    if (!readFile(firmwarePath, &text))
        return badInput(firmwarePath, 0, "cannot read the firmware image");
    if (!FirmwareImage::fromText(text, &image, &badLine))
        return badInput(firmwarePath, badLine, "bad S-record");

    Scenario scenario;
    signal::ParseError perr;
    if (!scenarioFile.empty()) {
        if (!readFile(scenarioFile, &text))
            return badInput(scenarioFile, 0, "cannot read the scenario");
        if (!ScenarioParser::parse(text, &scenario, &perr))
            return badInput(scenarioFile, perr.line, perr.message);
    } else {
        // Without a scenario: a wearer whose readings suit the hub's default
        // thresholds, wearing the device.
        scenario.wearer.emplace_back("baseline", 1000);
    }
    std::unique_ptr<Simulation> sim;
    if (!replayFile.empty()) {
        std::vector<signal::RecordedSample> samples;
        std::vector<signal::Label> labels;
        if (!readFile(replayFile, &text))
            return badInput(replayFile, 0, "cannot read the recording");
        if (!signal::Recording::parse(text, &samples, nullptr, &perr)) {
            return badInput(replayFile, perr.line, perr.message);
        }
        const std::string base =
                replayFile.size() > 4 && replayFile.substr(replayFile.size() - 4) == ".txt"
                        ? replayFile.substr(0, replayFile.size() - 4)
                        : replayFile;
        const std::string labelsFile = base + ".labels";
        if (readFile(labelsFile, &text) && !signal::LabelFile::parse(text, &labels, &perr)) {
            return badInput(labelsFile, perr.line, perr.message);
        }
        sim = std::make_unique<Simulation>(scenario, image, std::move(samples), std::move(labels));
    } else {
        sim = std::make_unique<Simulation>(scenario, image);
    }

    FILE* labelsOut = nullptr;
    if (!labelsPath.empty()) {
        labelsOut = fopen(labelsPath.c_str(), "w");
        if (labelsOut == nullptr) {
            fprintf(stderr, "veltohub-sim: cannot write %s\n", labelsPath.c_str());
            return 1;
        }
        fputs("# Ground truth of veltohub-sim: START_NS END_NS NAME in hub time\n", labelsOut);
        fflush(labelsOut);
    }

    FILE* readableOut = nullptr;
    if (!readablePath.empty()) {
        readableOut = fopen(readablePath.c_str(), "w");
        if (readableOut == nullptr) {
            fprintf(stderr, "veltohub-sim: cannot write %s\n", readablePath.c_str());
            if (labelsOut != nullptr) fclose(labelsOut);
            return 1;
        }
    }

    // On the side: looking at another simulator's mount waits for it, and a
    // stopped one would hold up this start.
    quietThread([] {
        for (const std::string& m : SimRoot::sweepDeadMounts()) {
            fprintf(stderr, "veltohub-sim: detached the mount of a dead simulator at %s\n", m.c_str());
        }
    }).detach();
    std::string absRoot, error;
    if (!SimRoot::claim(root, &absRoot, &error)) {
        fprintf(stderr, "veltohub-sim: %s\n", error.c_str());
        if (labelsOut != nullptr) fclose(labelsOut);
        return 1;
    }
    const std::string mountPoint = SimRoot::mountPoint(absRoot);

    HubFileSystem fs(std::move(sim), speed, labelsOut);
    fs.setPaced(paced);
    fs.setReadableLog(readableOut);
    // auto_unmount: a helper unmounts even if this process is killed.
    // The subtype makes the type SimRoot::kFileSystemType.
    const char* fuseArgv[] = {argv[0], "-o", "auto_unmount,fsname=veltohub,subtype=veltohub-sim"};
    fuse_args args = FUSE_ARGS_INIT(3, const_cast<char**>(fuseArgv));
    fuse_session* se =
            fuse_session_new(&args, HubFileSystem::operations(), sizeof(fuse_lowlevel_ops), &fs);
    fuse_opt_free_args(&args);
    // libfuse leaves a signal alone when it is ignored on entry, as it is for
    // background jobs of a non-interactive shell; INT and TERM must always
    // unmount.
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    if (se == nullptr || fuse_set_signal_handlers(se) != 0 ||
        fuse_session_mount(se, mountPoint.c_str()) != 0) {
        fprintf(stderr, "veltohub-sim: cannot mount the hub file system at %s\n",
                mountPoint.c_str());
        if (se != nullptr) {
            fuse_remove_signal_handlers(se);
            fuse_session_destroy(se);
        }
        SimRoot::depopulate(absRoot);
        if (labelsOut != nullptr) fclose(labelsOut);
        return 1;
    }
    // libfuse's handlers end the loop the same way; these also remember
    // which signal it was.
    gSession = se;
    struct sigaction stopAction {};
    stopAction.sa_handler = onStopSignal;
    sigemptyset(&stopAction.sa_mask);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaction(s, &stopAction, nullptr);
    fs.setSession(se);

    ControlServer control;
    bool ok = SimRoot::populate(absRoot, gazeEtc, firmwarePath, &error);
    if (ok && !controlPath.empty()) {
        ok = control.start(
                controlPath, [&fs](const std::string& line) { return fs.control(line); }, &error);
    }
    std::atomic<bool> stopping{false};
    std::mutex tickLock;
    std::condition_variable tickWake;
    std::thread ticker;
    std::thread stopWatcher;
    if (ok) {
        // libfuse's loop thread sleeps on a semaphore that only a signal or a
        // finishing worker wakes. A stop signal taken by a worker just before
        // it blocks in read() sets the exit flag and wakes nobody, so the
        // watcher repeats the signal to the loop's thread until it returns.
        if (pipe2(gStopPipe, O_CLOEXEC | O_NONBLOCK) == 0) {
            const pthread_t loopThread = pthread_self();
            stopWatcher = quietThread([&stopping, loopThread] {
                char byte;
                while (!stopping && gStopSignal.load() == 0) {
                    pollfd pfd{gStopPipe[0], POLLIN, 0};
                    if (poll(&pfd, 1, -1) < 0 && errno != EINTR) return;
                    while (read(gStopPipe[0], &byte, 1) == 1) {
                    }
                }
                while (!stopping) {
                    pthread_kill(loopThread, gStopSignal.load());
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                }
            });
        }
        ticker = quietThread([&] {
            bool quitSent = false;
            std::unique_lock<std::mutex> l(tickLock);
            while (!stopping) {
                fs.tick();
                if (!quitSent && fs.quitRequested()) {
                    quitSent = true;
                    kill(getpid(), SIGTERM);
                }
                tickWake.wait_for(l, fs.untilNextDue());
            }
        });
        if (readyFd >= 0) {
            if (write(readyFd, "ready\n", 6) != 6 && verbose)
                fprintf(stderr, "veltohub-sim: ready-fd write failed\n");
            close(readyFd);
        }
        if (verbose)
            fprintf(stderr, "veltohub-sim: ready, hub mounted at %s\n", mountPoint.c_str());
        fuse_loop_config* cfg = fuse_loop_cfg_create();
        fuse_loop_cfg_set_max_threads(cfg, 16);
        fuse_loop_cfg_set_idle_threads(cfg, 4);
        fuse_session_loop_mt(se, cfg);
        fuse_loop_cfg_destroy(cfg);
    } else {
        fprintf(stderr, "veltohub-sim: %s\n", error.c_str());
    }

    stopping = true;
    if (stopWatcher.joinable()) {
        const char byte = 0;
        (void)!write(gStopPipe[1], &byte, 1);
        stopWatcher.join();
    }
    for (int& fd : gStopPipe) {
        const int open = fd;
        fd = -1;
        if (open >= 0) close(open);
    }
    tickWake.notify_all();
    if (ticker.joinable()) ticker.join();
    control.stop();
    fs.tick();  // labels finished by now
    fs.shutdown();
    fuse_remove_signal_handlers(se);
    fuse_session_unmount(se);
    gSession = nullptr;
    fuse_session_destroy(se);
    SimRoot::depopulate(absRoot);
    if (labelsOut != nullptr) fclose(labelsOut);
    if (readableOut != nullptr) fclose(readableOut);
    if (verbose) fprintf(stderr, "veltohub-sim: unmounted %s\n", mountPoint.c_str());
    if (!ok) return 1;
    return gStopSignal.load() == SIGINT ? tools::kExitInterrupted : tools::kExitOk;
}
