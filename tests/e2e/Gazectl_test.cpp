// gazectl, the command-line client, run as a person or a script runs it: a
// child process against the simulator. Waits are for what gazectl says, never
// for fixed times, so a loaded machine only makes them slower.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/e2e/E2eSupport.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const int kGenerousMs = 60000;

// One run of gazectl with its output collected as it comes.
class Gazectl {
public:
    explicit Gazectl(const std::vector<std::string>& args) { start(args); }
    ~Gazectl() {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
        for (int fd : mFds) {
            if (fd >= 0) close(fd);
        }
    }

    void start(const std::vector<std::string>& args) {
        int out[2], err[2];
        ASSERT_EQ(0, pipe(out));
        ASSERT_EQ(0, pipe(err));
        mPid = fork();
        ASSERT_GE(mPid, 0);
        if (mPid == 0) {
            dup2(out[1], 1);
            dup2(err[1], 2);
            std::vector<char*> argv;
            argv.push_back(const_cast<char*>(VELTO_GAZECTL));
            for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            execv(VELTO_GAZECTL, argv.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        mFds[0] = out[0];
        mFds[1] = err[0];
    }

    // Reads what is there, waiting up to `timeoutMs` for more.
    void pump(int timeoutMs) {
        struct pollfd fds[2] = {{mFds[0], POLLIN, 0}, {mFds[1], POLLIN, 0}};
        if (poll(fds, 2, timeoutMs) <= 0) return;
        for (int i = 0; i < 2; ++i) {
            if (mFds[i] < 0 || (fds[i].revents & (POLLIN | POLLHUP)) == 0) continue;
            char buf[4096];
            const ssize_t n = read(mFds[i], buf, sizeof(buf));
            if (n > 0) {
                (i == 0 ? mOut : mErr).append(buf, static_cast<size_t>(n));
            } else {
                close(mFds[i]);
                mFds[i] = -1;
            }
        }
    }

    bool waitForErr(const std::string& text, int timeoutMs = kGenerousMs) { return waitIn(mErr, text, timeoutMs); }
    bool waitForOut(const std::string& text, int timeoutMs = kGenerousMs) { return waitIn(mOut, text, timeoutMs); }

    void signal(int sig) { kill(mPid, sig); }

    // The exit status, or -1 when gazectl did not end within `timeoutMs`.
    int wait(int timeoutMs = kGenerousMs) {
        int status = 0;
        const bool ended = e2e::waitFor(
                [&] {
                    pump(5);
                    return waitpid(mPid, &status, WNOHANG) == mPid;
                },
                timeoutMs);
        if (!ended) return -1;
        mPid = -1;
        while (mFds[0] >= 0 || mFds[1] >= 0) pump(100);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    const std::string& out() const { return mOut; }
    const std::string& err() const { return mErr; }

private:
    bool waitIn(const std::string& stream, const std::string& text, int timeoutMs) {
        return e2e::waitFor([&] { return pump(5), stream.find(text) != std::string::npos; }, timeoutMs);
    }

    pid_t mPid = -1;
    int mFds[2] = {-1, -1};
    std::string mOut, mErr;
};

int lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

// The arguments of a run against the simulator `sim`.
std::vector<std::string> at(const hubsim::HubSimProcess& sim, const std::vector<std::string>& args) {
    std::vector<std::string> all = {"--root", sim.root(), "--serial", "G1", "--log", sim.root() + "/../gazectl.log"};
    all.insert(all.end(), args.begin(), args.end());
    return all;
}

void startSim(hubsim::HubSimProcess* sim, const std::string& scenario, double speed) {
    std::string error;
    ASSERT_TRUE(sim->start(e2e::scenario(scenario, speed), &error)) << error;
}

// What an idle device expects after gazectl, whichever way it ended.
void expectHubIdle(hubsim::HubSimProcess& sim) {
    EXPECT_EQ("OK 1", sim.command("get pause"));
    EXPECT_EQ("OK 0", sim.command("get passthru_enable"));
    EXPECT_EQ("OK", sim.command("wakelocks").substr(0, 2));
    EXPECT_EQ(std::string::npos, sim.command("wakelocks").find("Lock")) << sim.command("wakelocks");
}

TEST(Gazectl, ExitStatusesAndOneLinePerProblem) {
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    const std::string noHub = "/tmp/gazectl-test-nohub-" + std::to_string(getpid());
    const Case cases[] = {
            {{"--version"}, 0},
            {{"--help"}, 0},
            {{"watch", "--seconds", "-5"}, 2},
            {{"record", "--seconds", "-5"}, 2},
            {{"watch", "SNEEZE"}, 2},
            {{"calibrate", "BLINK"}, 2},
            {{"calibrate", "DON", "--seconds", "600"}, 2},
            {{"--no-such-option", "dump"}, 2},
            {{}, 2},
            {{"--root", noHub, "status"}, 1},
            {{"--root", noHub, "watch"}, 1},
            {{"--root", noHub, "calibrate", "DON"}, 1},
    };
    for (const Case& c : cases) {
        Gazectl g(c.args);
        EXPECT_EQ(c.status, g.wait()) << c.args.size() << " args: " << g.err();
        if (c.status != 0) {
            EXPECT_LE(lines(g.out() + g.err()), 3) << g.out() << g.err();
        }
        if (c.status == 2) {
            EXPECT_EQ(1, lines(g.err())) << g.err();
        }
    }
    Gazectl typo({"--root", noHub, "wacth"});
    EXPECT_EQ(2, typo.wait());
    EXPECT_EQ("gazectl: unknown command 'wacth' (see gazectl --help)\n", typo.err());
    Gazectl version({"--version"});
    version.wait();
    EXPECT_EQ("gazectl 0.12.1\n", version.out());

    // A script asking for JSON gets it even without a hub.
    Gazectl status({"--root", noHub, "status", "--json"});
    EXPECT_EQ(1, status.wait());
    const nlohmann::json j = nlohmann::json::parse(status.out());
    EXPECT_FALSE(j["hub"]["present"].get<bool>());
    EXPECT_NE(0, access(noHub.c_str(), F_OK)) << "nothing is created without a hub";
}

TEST(Gazectl, StatusAndDumpAsJsonAndTheHubIsLeftIdle) {
    hubsim::HubSimProcess sim;
    startSim(&sim, "wearer baseline 1200\n", 2);
    std::ofstream(sim.root() + "/data/system/gaze/laser_params.txt") << "24.000000\n";

    Gazectl status(at(sim, {"status", "--json"}));
    ASSERT_EQ(0, status.wait()) << status.err();
    EXPECT_EQ("", status.err());
    const nlohmann::json s = nlohmann::json::parse(status.out());
    EXPECT_TRUE(s["hub"]["present"].get<bool>());
    EXPECT_EQ("up to date", s["hub"]["firmware_state"]);
    EXPECT_EQ(450, s["parameters"]["don_threshold"].get<int>());
    ASSERT_EQ(4u, s["gestures"].size());
    for (const nlohmann::json& g : s["gestures"]) {
        EXPECT_TRUE(g["supported"].get<bool>()) << g.dump();
        if (g["gesture"] == "LOOK_AT_SCREEN") {
            EXPECT_TRUE(g["calibrated"].get<bool>());
        }
        if (g["gesture"] == "WINK") {
            EXPECT_FALSE(g["calibrated"].get<bool>());
        }
    }

    Gazectl dump(at(sim, {"dump", "--json"}));
    ASSERT_EQ(0, dump.wait()) << dump.err();
    const nlohmann::json d = nlohmann::json::parse(dump.out());
    EXPECT_NE(std::string::npos, d["service"].get<std::string>().find("GazeService version 0.12.1"));
    std::vector<std::string> modules;
    for (const nlohmann::json& m : d["modules"]) modules.push_back(m["name"]);
    EXPECT_EQ((std::vector<std::string>{"WinkModule", "DoubleBlinkModule", "DonDoffModule", "LookAtScreenModule"}),
              modules);
    expectHubIdle(sim);

    // record names the log it wrote.
    Gazectl record(at(sim, {"record", "--seconds", "1"}));
    ASSERT_EQ(0, record.wait()) << record.err();
    const std::string log = test::readFile(record.out().substr(0, record.out().find('\n')));
    EXPECT_NE(std::string::npos, log.find("</HEADER>")) << record.out();
    expectHubIdle(sim);
}

TEST(Gazectl, WatchPrintsOneJsonLinePerEventQuietly) {
    hubsim::HubSimProcess sim;
    startSim(&sim, "seed 12\nwearer baseline 1400\nwearer blink-rate 0\n", 1);
    Gazectl watch(at(sim, {"watch", "DOUBLE_BLINK", "--json"}));
    ASSERT_TRUE(watch.waitForErr("watching DOUBLE_BLINK")) << watch.err();
    bool seen = false;
    for (int i = 0; i < 4 && !seen; ++i) {
        ASSERT_TRUE(e2e::waitFor([&] { return sim.command("double-blink").compare(0, 2, "OK") == 0; }));
        seen = watch.waitForOut("\n", 5000);
    }
    ASSERT_TRUE(seen) << watch.err();
    watch.signal(SIGINT);
    EXPECT_EQ(130, watch.wait());
    EXPECT_LE(lines(watch.err()), 3) << watch.err();
    std::istringstream out(watch.out());
    int events = 0;
    for (std::string line; std::getline(out, line); ++events) {
        const nlohmann::json e = nlohmann::json::parse(line);
        EXPECT_EQ("DOUBLE_BLINK", e["gesture"]);  // its fields are EventPrinter's
    }
    EXPECT_GE(events, 1);
    expectHubIdle(sim);
}

TEST(Gazectl, CtrlCInEveryCalibrationKeepsTheEarlierFiles) {
    hubsim::HubSimProcess sim;
    startSim(&sim, "wearer baseline 1100\n", 2);
    const std::string dir = sim.root() + "/data/system/gaze/";
    const std::map<std::string, std::string> earlier = {
            {"laser_params.txt", "31.500000\n"},
            {"gaze_params.txt", "# earlier\nDOFF_THRESH = 380\nDON_MAX_THRESH = 2100\nDON_THRESH = 620\nGAIN = 2\n"
                                "VERSION = 3.0\nWINK_MAX = 500\nWINK_MIN = 200\n"},
            {"don_doff_debug.txt", "minValue: 1.0\n"},
            {"wink_calibration.txt", "300.000000 340.000000 420.000000 460.000000 1"},
    };
    for (const auto& f : earlier) std::ofstream(dir + f.first, std::ios::binary) << f.second;

    // Each is interrupted with its interval open and readings arriving.
    const std::pair<const char*, const char*> calibrations[] = {
            {"LOOK_AT_SCREEN", "Look at the display now"},
            {"DON", "Wear the device"},
            {"WINK", "Wink deliberately"},
    };
    for (const auto& c : calibrations) {
        // The longest interval each allows, so that only the interrupt ends it,
        // however slowly a loaded machine lets the simulator answer.
        const char* longest = std::string(c.first) == "WINK" ? "300" : "55";
        Gazectl calibrate(at(sim, {"calibrate", c.first, "--seconds", longest}));
        ASSERT_TRUE(calibrate.waitForErr(c.second)) << calibrate.err();
        // A gesture in the interval (the simulator refuses one that would
        // overlap the last, so it is asked again).
        const std::string gesture = std::string(c.first) == "WINK" ? "wink 450ms" : "look 2s";
        if (std::string(c.first) != "DON") {
            EXPECT_TRUE(e2e::waitFor([&] { return sim.command(gesture).compare(0, 2, "OK") == 0; }));
        }
        calibrate.signal(SIGINT);
        EXPECT_EQ(130, calibrate.wait()) << c.first << ": " << calibrate.err();
        EXPECT_NE(std::string::npos, calibrate.err().find("not saved: interrupted")) << calibrate.err();
        for (const auto& f : earlier) EXPECT_EQ(f.second, test::readFile(dir + f.first)) << c.first << " changed " << f.first;
        expectHubIdle(sim);
    }
}

TEST(Gazectl, ACalibrationThatCannotBeRightIsNotSaved) {
    hubsim::HubSimProcess sim;
    // Worn throughout, blinking: no off-head level and no look at the display.
    startSim(&sim, "seed 4\nwearer baseline 1100\nwearer blink-rate 20\n", 2);
    const std::string dir = sim.root() + "/data/system/gaze/";
    std::ofstream(dir + "laser_params.txt") << "31.500000\n";

    for (const char* gesture : {"DON", "LOOK_AT_SCREEN"}) {
        Gazectl calibrate(at(sim, {"calibrate", gesture, "--seconds", "6"}));
        EXPECT_EQ(1, calibrate.wait()) << calibrate.err();
        EXPECT_NE(std::string::npos, calibrate.err().find("calibration not saved")) << calibrate.err();
        EXPECT_EQ("31.500000\n", test::readFile(dir + "laser_params.txt"));
        EXPECT_NE(0, access((dir + "gaze_params.txt").c_str(), F_OK)) << gesture;
    }

    // Told to take it off, the wearer does: this one is saved. Long enough
    // that a slow reaction to the prompt still leaves the off level held for
    // seconds.
    Gazectl calibrate(at(sim, {"calibrate", "DON", "--seconds", "16"}));
    ASSERT_TRUE(calibrate.waitForErr("Take the device off")) << calibrate.err();
    EXPECT_EQ("OK", sim.command("doff").substr(0, 2));
    ASSERT_TRUE(calibrate.waitForErr("Put the device back on")) << calibrate.err();
    EXPECT_EQ("OK", sim.command("don").substr(0, 2));
    EXPECT_EQ(0, calibrate.wait()) << calibrate.err();
    EXPECT_NE(std::string::npos, calibrate.out().find("DON calibration saved")) << calibrate.out();
    EXPECT_NE(std::string::npos, test::readFile(dir + "gaze_params.txt").find("DON_THRESH"));
    expectHubIdle(sim);
}

TEST(Gazectl, WatchSaysOnceThatTheHubWentAwayAndEnds) {
    hubsim::HubSimProcess sim;
    startSim(&sim, "wearer baseline 1200\n", 1);
    Gazectl watch(at(sim, {"watch", "DON", "DOUBLE_BLINK"}));
    ASSERT_TRUE(watch.waitForErr("watching")) << watch.err();
    ASSERT_TRUE(sim.stop());
    EXPECT_EQ(1, watch.wait(20000)) << watch.err();
    const std::string err = watch.err();
    size_t said = 0;
    for (size_t p = err.find("disappeared"); p != std::string::npos; p = err.find("disappeared", p + 1)) ++said;
    EXPECT_EQ(1u, said) << err;
    EXPECT_LE(lines(err), 4) << err;
}

}  // namespace
}  // namespace velto
