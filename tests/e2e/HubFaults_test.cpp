// The service under the faults a real hub produces, one fault per process:
// the double-blink detector runs, a double blink is seen, the fault strikes,
// and a double blink made 4 s of hub time after it must be seen too. Each row
// also checks that the service still runs, that the log says what happened,
// and that no wake lock stays held once the detector is stopped. Hub
// recovery is on, as gazectl runs the service; the last rows show what the
// plain driver does without it.
//
// Times are hub times at a modest --speed; every wait is a generous deadline
// on a condition, so a loaded machine makes a row slower, not red.
#include <fcntl.h>
#include <sys/wait.h>

#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tests/e2e/E2eSupport.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using e2e::value;
using e2e::waitFor;
using test::LogCapture;
typedef GazeServiceInterface G;

const double kSpeed = 2;

struct Fault {
    const char* name;
    const char* command;  // simulator command; none for the control pipe
    const char* logged;   // what the log must say about it
    // Makes the library meet an attribute fault: the detector is stopped, the
    // fault is set once the hub is idle, and the detector is started again,
    // which writes passthru_enable and pause. (Set earlier, the fault could
    // be spent on the stop's writes or on a check's reads, as the event
    // thread's turns happen to fall.)
    bool restartDetector;
    bool beforeStart;  // the fault is in place when the service starts
    bool recovery = true;   // hub recovery on
    bool recovered = true;  // a double blink after the fault is seen
};

const Fault kFaults[] = {
        {"HubReset", "fault reset", "hub reset?", false, false},
        {"ClockStepsBack", "fault jump -10s", "Hub clock went back from", false, false},
        {"ClockStepsForward", "fault jump 30s", "time stamps jumped", false, false},
        {"DataDeviceErrorBurst", "fault eio veltohub 150", "The data device reads again after", false, false},
        {"PassthroughWriteFails", "fault eio passthru_enable 2", "streaming resumed", true, false},
        {"PauseWriteFails", "fault eio pause 3", "Error setting pause state", true, false},
        {"ControlPipeIsAFile", nullptr, "is not a FIFO", false, true},
        {"FifoOverflow", "fault late 3s", "time stamps jumped", false, false},
        {"DuplicatePackets", "fault duplicate 20", "repeats or precedes", false, false},
        {"PartialPackets", "fault partial 5", "Dropped a partial packet", false, false},
        {"DonDoffInterruptStorm", "fault storm don_doff 500 1s", "Handle DON_DOFF interrupt!", false, false},
        {"WinkInterruptStorm", "fault storm wink 500 1s", "Handle LOW_POWER_WINK interrupt!", false, false},
        // Without recovery a burst of read errors passes: each failed read is
        // a zero sample and a warning, and the next reads work again.
        {"DataDeviceErrorBurstWithoutRecovery", "fault eio veltohub 150", "Failed to read a full packet of data!",
         false, false, false, true},
        // A reset, though, leaves the hub paused and not streaming, and
        // nothing puts it back: the service stays blind.
        {"HubResetWithoutRecovery", "fault reset", nullptr, false, false, false, false},
};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

class HubFault : public ::testing::TestWithParam<Fault> {};

void hubSleep(double seconds) { usleep(static_cast<useconds_t>(seconds / kSpeed * 1e6)); }

bool ok(hubsim::HubSimProcess& sim, const std::string& command) {
    return waitFor([&] { return sim.command(command).compare(0, 2, "OK") == 0; }, 5000);
}

long delivered(hubsim::HubSimProcess& sim) {
    const std::string stats = sim.command("stats");
    const size_t at = stats.find("delivered=");
    return at == std::string::npos ? -1 : std::stol(stats.substr(at + 10));
}

// On a loaded machine the library may take longer than the hub's clock to put
// things right; a gesture made meanwhile would test the machine, not the
// library. So the blink waits until the hub streams again and the library has
// read a second and a half of samples (at once when nothing lags).
bool streamingAgain(hubsim::HubSimProcess& sim) {
    if (!waitFor([&] { return value(sim.command("get passthru_enable")) == "1" &&
                              value(sim.command("get pause")) == "0"; }, 20000)) {
        return false;
    }
    const long start = delivered(sim);
    return waitFor([&] { return delivered(sim) >= start + 48; }, 20000);
}

// A double blink, and whether the client heard it within a generous deadline.
bool doubleBlinkSeen(hubsim::HubSimProcess& sim, test::GestureRecorder& client) {
    const int before = client.count(G::DOUBLE_BLINK);
    if (!ok(sim, "double-blink 600ms 150")) return false;
    return waitFor([&] { return client.count(G::DOUBLE_BLINK) > before; }, 15000);
}

TEST_P(HubFault, TheServiceFindsItsWayBack) {
    const Fault& fault = GetParam();
    hubsim::HubSimProcess sim;
    hubsim::HubSimProcess::Options options = e2e::scenario(e2e::stillWearer(), kSpeed);
    options.extraArgs = {"--gaze-etc", VELTO_E2E_DETECTORS};
    e2e::startHub(&sim, options);
    setenv("VELTOGAZE_SERIAL", "G0123", 1);
    VeltohubProximitySensor::setHubRecoveryEnabled(fault.recovery);
    GazeService* service = GazeService::getInstance();
    android::sp<test::GestureRecorder> client = new test::GestureRecorder();
    service->setGazeListener(client);

    const std::string pipe = sim.root() + "/data/system/gaze/gaze_service_control_pipe";
    if (fault.beforeStart) {
        close(open(pipe.c_str(), O_CREAT | O_WRONLY, 0600));  // a regular file where the FIFO goes
        EXPECT_FALSE(service->start());
        EXPECT_TRUE(LogCapture::contains(fault.logged)) << LogCapture::dump();
        unlink(pipe.c_str());  // the fault clears; the next start tries again
    }
    ASSERT_TRUE(service->start());
    ASSERT_TRUE(service->startGestureDetector(G::DOUBLE_BLINK, false, -1));
    hubSleep(1.5);
    ASSERT_TRUE(doubleBlinkSeen(sim, *client)) << "before the fault\n" << LogCapture::dump();
    hubSleep(1.0);

    if (fault.restartDetector) {
        ASSERT_TRUE(service->stopGestureDetector(G::DOUBLE_BLINK));
        ASSERT_TRUE(waitFor([&] { return value(sim.command("get passthru_enable")) == "0" &&
                                         value(sim.command("get pause")) == "1"; }));
    }
    if (fault.command != nullptr) {
        ASSERT_TRUE(ok(sim, fault.command));
    }
    if (fault.restartDetector) {
        ASSERT_TRUE(service->startGestureDetector(G::DOUBLE_BLINK, false, -1));
    }
    hubSleep(4.0);
    if (fault.recovered) {
        EXPECT_TRUE(streamingAgain(sim)) << LogCapture::dump();
        EXPECT_TRUE(doubleBlinkSeen(sim, *client)) << "after the fault\n" << LogCapture::dump();
    } else {
        EXPECT_EQ("1", value(sim.command("get pause")));
        EXPECT_EQ("0", value(sim.command("get passthru_enable")));
        EXPECT_FALSE(doubleBlinkSeen(sim, *client)) << "after the fault, without recovery";
    }

    EXPECT_TRUE(service->isRunning());
    EXPECT_TRUE(service->isGestureDetectorRunning(G::DOUBLE_BLINK));
    android::String8 dump;
    service->dump(dump);
    EXPECT_NE(std::string::npos, std::string(dump.string()).find("Proximity sensor thread status: running"));
    if (fault.logged != nullptr) {
        EXPECT_TRUE(waitFor([&] { return LogCapture::contains(fault.logged); })) << LogCapture::dump();
    }

    // Idle: the hub paused, not streaming, and no wake lock held.
    ASSERT_TRUE(service->stopGestureDetector(G::DOUBLE_BLINK));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get passthru_enable")) == "0"; }));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get pause")) == "1"; }));
    EXPECT_TRUE(waitFor([&] { return sim.command("wakelocks") == "OK"; })) << sim.command("wakelocks");
}

// The process ends (exit, not a crash) while the service streams: the sensor
// stops its thread before the statics it uses go away (the sanitizer builds
// would report otherwise) and leaves the hub paused and not streaming.
TEST(HubAtExit, AProcessEndingWithTheServiceRunningLeavesTheHubPaused) {
    hubsim::HubSimProcess sim;
    hubsim::HubSimProcess::Options options = e2e::scenario(e2e::stillWearer(), kSpeed);
    options.extraArgs = {"--gaze-etc", VELTO_E2E_DETECTORS};
    e2e::startHub(&sim, options);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv("VELTOGAZE_SERIAL", "G0123", 1);
        VeltohubProximitySensor::setHubRecoveryEnabled(true);
        GazeService* service = GazeService::getInstance();
        const bool started = service->start() && service->startGestureDetector(G::DOUBLE_BLINK, false, -1) &&
                             service->startLogging();
        usleep(500000);
        exit(started ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("1", value(sim.command("get pause")));
    EXPECT_EQ("0", value(sim.command("get passthru_enable")));
    EXPECT_EQ("OK", sim.command("wakelocks"));
}

INSTANTIATE_TEST_SUITE_P(Table, HubFault, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<Fault>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velto
