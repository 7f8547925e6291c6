#include "tools/hubsim/testing/HubSimProcess.h"

#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "tools/hubsim/SimRoot.h"

namespace velto {
namespace hubsim {

namespace {

// Goes on past an entry that cannot go, so that the rest still goes.
int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    remove(path);
    return 0;
}

bool writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

// Waits for `fd` to become readable, at most `ms`.
bool waitReadable(int fd, int ms) {
    pollfd p = {fd, POLLIN, 0};
    int r;
    do {
        r = poll(&p, 1, ms);
    } while (r < 0 && errno == EINTR);
    return r > 0;
}

}  // namespace

std::string HubSimProcess::binary() {
    return VELTO_HUBSIM_BINARY;
}

HubSimProcess::~HubSimProcess() {
    stop();
    // On a loaded machine the unmount can take seconds after the simulator
    // ended; the tree below a live mount point cannot be removed.
    for (int i = 0; i < 6000 && mounted(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (!mDir.empty() && getenv("VELTO_KEEP_ROOT") == nullptr) {
        nftw(mDir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS | FTW_MOUNT);
    }
}

std::string HubSimProcess::errorOutput() const {
    std::ifstream in(mStderr);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool HubSimProcess::mounted() const {
    return !mRoot.empty() && SimRoot::isMountPoint(SimRoot::mountPoint(mRoot));
}

bool HubSimProcess::start(const Options& o, std::string* error) {
    if (running()) {
        *error = "already running";
        return false;
    }
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr ? tmp : "/tmp") + "/veltohub-sim-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        *error = std::string("mkdtemp: ") + strerror(errno);
        return false;
    }
    char real[PATH_MAX];
    mDir = realpath(pattern.c_str(), real) != nullptr ? real : pattern;
    mRoot = mDir + "/root";
    mSocket = mDir + "/control.sock";
    mLabels = o.labels ? mDir + "/labels.txt" : "";
    mStderr = mDir + "/stderr.txt";

    std::vector<std::string> args = {
            binary(), "--root", mRoot, "--control", mSocket, "--speed", std::to_string(o.speed)};
    if (!o.scenarioFile.empty()) {
        args.insert(args.end(), {"--scenario", o.scenarioFile});
    } else if (!o.scenario.empty()) {
        const std::string file = mDir + "/scenario.txt";
        if (!writeText(file, o.scenario)) {
            *error = "cannot write " + file;
            return false;
        }
        args.insert(args.end(), {"--scenario", file});
    }
    if (!o.replayFile.empty()) args.insert(args.end(), {"--replay", o.replayFile});
    if (o.labels) args.insert(args.end(), {"--labels", mLabels});
    args.insert(args.end(), o.extraArgs.begin(), o.extraArgs.end());

    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        *error = std::string("pipe: ") + strerror(errno);
        return false;
    }
    args.insert(args.end(), {"--ready-fd", std::to_string(ready[1])});
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid < 0) {
        *error = std::string("fork: ") + strerror(errno);
        close(ready[0]);
        close(ready[1]);
        return false;
    }
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        const int err = open(mStderr.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (err >= 0) dup2(err, 2);
        fcntl(ready[1], F_SETFD, 0);  // the ready pipe survives exec
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(ready[1]);
    mPid = pid;
    char buf[16] = {0};
    const bool gotReady =
            waitReadable(ready[0], o.readyTimeoutMs) && read(ready[0], buf, sizeof(buf) - 1) > 0;
    close(ready[0]);
    if (!gotReady || strncmp(buf, "ready", 5) != 0) {
        std::string ignored;
        stop(&ignored);
        *error = "veltohub-sim did not come up: " + errorOutput();
        return false;
    }
    return true;
}

std::string HubSimProcess::command(const std::string& line) {
    std::string error;
    if (!mControl.connected() && !mControl.connect(mSocket, &error)) return "ERR " + error;
    return mControl.command(line);
}

bool HubSimProcess::stop(std::string* error) {
    mControl.close();
    if (mPid <= 0) return true;
    kill(mPid, SIGTERM);
    int status = 0;
    bool exited = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        const pid_t r = waitpid(mPid, &status, WNOHANG);
        if (r == mPid || (r < 0 && errno == ECHILD)) {
            exited = r == mPid;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    bool clean = exited && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!exited) {
        kill(mPid, SIGKILL);
        waitpid(mPid, &status, 0);
    }
    mPid = -1;
    // With auto_unmount the mount goes even after a kill, a moment later.
    for (int i = 0; i < 200 && mounted(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (mounted()) clean = false;
    if (!clean && error != nullptr) {
        *error = std::string(exited ? "" : "had to be killed; ") +
                 (mounted() ? "still mounted; " : "") + "status " + std::to_string(status) + "; " +
                 errorOutput();
    }
    return clean;
}

}  // namespace hubsim
}  // namespace velto
