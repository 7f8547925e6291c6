// The shipped detector files (etc/gaze, installed by the simulator) on a
// wearer who blinks spontaneously, as on a device: the service detects the
// deliberate gestures and leaves the blinks alone.
//
// The simulator runs paced and the test waits in hub time, not wall time: on
// a loaded machine the run takes longer, but every sample reaches the
// detectors and every gesture falls where the test put it.
#include <atomic>
#include <cstdlib>
#include <mutex>

#include "service/GazeService.h"
#include "tests/e2e/E2eSupport.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using e2e::waitFor;
typedef GazeServiceInterface G;

struct Counter : public G::GazeListenerInterface {
    std::mutex lock;
    int counts[G::NUM_EYE_GESTURES] = {};
    void onEyeGesture(G::EyeGesture g, int64_t, int64_t) override {
        std::lock_guard<std::mutex> l(lock);
        ++counts[g];
    }
    int count(G::EyeGesture g) {
        std::lock_guard<std::mutex> l(lock);
        return counts[g];
    }
};

bool ok(hubsim::HubSimProcess& sim, const std::string& command) {
    return waitFor([&] { return sim.command(command).compare(0, 2, "OK") == 0; }, 30000);
}

int64_t hubNow(hubsim::HubSimProcess& sim) { return std::atoll(e2e::value(sim.command("now")).c_str()); }

// Waits until the hub's clock has moved on by `seconds`, however long that
// takes on this machine.
void hubSleep(hubsim::HubSimProcess& sim, double seconds) {
    const int64_t until = hubNow(sim) + static_cast<int64_t>(seconds * 1e9);
    ASSERT_TRUE(waitFor([&] { return hubNow(sim) >= until; }, 600000)) << "the hub clock stopped";
}

hubsim::HubSimProcess::Options pacedScenario(const std::string& text, double speed) {
    hubsim::HubSimProcess::Options options = e2e::scenario(text, speed);
    options.extraArgs.push_back("--paced");
    return options;
}

TEST(ShippedModels, DeliberateGesturesAreFoundAmongSpontaneousBlinks) {
    hubsim::HubSimProcess sim;
    e2e::startHub(&sim, pacedScenario("seed 21\nwearer baseline 1300\nwearer blink-rate 15\nwearer noise 6\n"
                                      "wearer blink-amp 110\nwearer wink-amp 260\nwearer look-shift 140\n"
                                      "wearer sample-loss-per-hour 0\n",
                                      4));
    setenv("VELTOGAZE_SERIAL", "G1", 1);
    GazeService* service = GazeService::getInstance();
    android::sp<Counter> client = new Counter();
    service->setGazeListener(client);
    ASSERT_TRUE(service->start());

    // Calibrations, as a first-time wearer does them.
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::WINK));
    for (int i = 0; i < 3 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        hubSleep(sim, 1.0);
        ASSERT_TRUE(ok(sim, "wink 500ms"));
        hubSleep(sim, 2.0);
    }
    ASSERT_TRUE(service->isCalibrationCompleteForGesture(G::WINK)) << test::LogCapture::dump();
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::WINK));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::WINK));
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
    hubSleep(sim, 1.0);
    ASSERT_TRUE(ok(sim, "look 3s"));
    hubSleep(sim, 5.0);
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN));
    ASSERT_TRUE(service->loadCalibrationForGesture(G::LOOK_AT_SCREEN));

    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        ASSERT_TRUE(service->startGestureDetector(g, false, -1)) << G::EyeGesture(g);
    }
    const int winksBefore = client->count(G::WINK);
    hubSleep(sim, 2.0);
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(ok(sim, "double-blink"));
        hubSleep(sim, 4.0);
        ASSERT_TRUE(ok(sim, "wink 500ms"));
        hubSleep(sim, 4.0);
        ASSERT_TRUE(ok(sim, "look 3s"));
        hubSleep(sim, 6.0);
    }
    hubSleep(sim, 2.0);
    // Four of each were performed among a minute of spontaneous blinks.
    EXPECT_GE(client->count(G::DOUBLE_BLINK), 3);
    EXPECT_LE(client->count(G::DOUBLE_BLINK), 5);
    EXPECT_GE(client->count(G::WINK) - winksBefore, 3);
    EXPECT_LE(client->count(G::WINK) - winksBefore, 4);
    EXPECT_GE(client->count(G::LOOK_AT_SCREEN), 3);
    EXPECT_LE(client->count(G::LOOK_AT_SCREEN), 5);
    service->stop();
}

}  // namespace
}  // namespace velto
