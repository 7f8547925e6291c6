// The shipped detector files (etc/gaze, installed by the simulator) on a
// wearer who blinks spontaneously, as on a device: the service detects the
// deliberate gestures and leaves the blinks alone.
//
// The simulator runs paced and the test waits in hub time, not wall time: on
// a loaded machine the run takes longer, but every sample reaches the
// detectors and every gesture falls where the scenario put it.
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

int64_t hubNow(hubsim::HubSimProcess& sim) { return std::atoll(e2e::value(sim.command("now")).c_str()); }

// Waits until the hub's clock reads `seconds`, however long that takes on
// this machine.
void hubWaitUntil(hubsim::HubSimProcess& sim, double seconds) {
    const int64_t until = static_cast<int64_t>(seconds * 1e9);
    ASSERT_TRUE(waitFor([&] { return hubNow(sim) >= until; }, 600000)) << "the hub clock stopped";
}

// A paced hub playing `text` (a wearer and the gestures at fixed hub times)
// and the service started on it, ready for its first calibration at 10 s.
class ShippedModels : public ::testing::Test {
protected:
    void start(const std::string& text, const char* serial) {
        hubsim::HubSimProcess::Options options = e2e::scenario(text, 4);
        options.extraArgs.push_back("--paced");
        e2e::startHub(&sim, options);
        setenv("VELTOGAZE_SERIAL", serial, 1);
        service = GazeService::getInstance();
        service->setGazeListener(client);
        ASSERT_TRUE(service->start());
        ASSERT_LT(hubNow(sim), 10000000000LL) << "the service took 10 s of hub time to start";
        hubWaitUntil(sim, 10.0);
    }
    // A look calibration over the hub's seconds `from` to `to`.
    void calibrateLook(double from, double to) {
        hubWaitUntil(sim, from);
        ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
        hubWaitUntil(sim, to);
        ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
        ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN));
        ASSERT_TRUE(service->loadCalibrationForGesture(G::LOOK_AT_SCREEN));
    }
    hubsim::HubSimProcess sim;
    GazeService* service = nullptr;
    android::sp<Counter> client = new Counter();
};

TEST_F(ShippedModels, DeliberateGesturesAreFoundAmongSpontaneousBlinks) {
    // Every gesture is the scenario's, at a fixed hub time, so the wearer's
    // signal is the same on every run; the test only calls the service in
    // the pauses between them.
    std::string text =
            "seed 21\nwearer baseline 1300\nwearer blink-rate 15\nwearer noise 6\n"
            "wearer blink-amp 110\nwearer wink-amp 260\nwearer look-shift 140\n"
            "wearer sample-loss-per-hour 0\n"
            "at 11s wink 500ms\nat 14s wink 500ms\nat 17s wink 500ms\n"  // wink calibration
            "at 21s look 3s\n";                                            // look calibration
    // Four of each, from 29 s on, among the spontaneous blinks.
    for (int i = 0; i < 4; ++i) {
        const int t = 29 + 14 * i;
        text += "at " + std::to_string(t) + "s double-blink\nat " + std::to_string(t + 4) + "s wink 500ms\nat " +
                std::to_string(t + 8) + "s look 3s\n";
    }
    ASSERT_NO_FATAL_FAILURE(start(text, "G1"));

    // Calibrations, as a first-time wearer does them.
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::WINK));
    hubWaitUntil(sim, 19.0);
    ASSERT_TRUE(service->isCalibrationCompleteForGesture(G::WINK)) << test::LogCapture::dump();
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::WINK));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::WINK));
    ASSERT_NO_FATAL_FAILURE(calibrateLook(19.0, 26.0));

    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        ASSERT_TRUE(service->startGestureDetector(g, false, -1)) << G::EyeGesture(g);
    }
    const int winksBefore = client->count(G::WINK);
    hubWaitUntil(sim, 87.0);
    EXPECT_GE(client->count(G::DOUBLE_BLINK), 3);
    EXPECT_LE(client->count(G::DOUBLE_BLINK), 5);
    EXPECT_GE(client->count(G::WINK) - winksBefore, 3);
    EXPECT_LE(client->count(G::WINK) - winksBefore, 4);
    EXPECT_GE(client->count(G::LOOK_AT_SCREEN), 3);
    EXPECT_LE(client->count(G::LOOK_AT_SCREEN), 5);
    service->stop();
}

// A face and fit whose reading falls when the eye turns to the display: each
// look is reported while the wearer still looks, not after looking back.
TEST_F(ShippedModels, ALookThatLowersTheReadingIsReportedDuringTheLook) {
    const int looks[] = {30, 44, 58};
    std::string text =
            "seed 22\nwearer baseline 1300\nwearer blink-rate 15\nwearer noise 6\nwearer blink-amp 110\n"
            "wearer look-shift -140\nwearer sample-loss-per-hour 0\nat 11s look 3s\n";
    for (int t : looks) text += "at " + std::to_string(t) + "s look 3s\n";
    ASSERT_NO_FATAL_FAILURE(start(text, "G2"));
    ASSERT_NO_FATAL_FAILURE(calibrateLook(10.0, 16.0));
    ASSERT_TRUE(service->startGestureDetector(G::LOOK_AT_SCREEN, false, -1));
    for (int t : looks) {
        hubWaitUntil(sim, t);
        const int before = client->count(G::LOOK_AT_SCREEN);
        hubWaitUntil(sim, t + 2.5);  // the look lasts 3 s
        EXPECT_GT(client->count(G::LOOK_AT_SCREEN), before) << "nothing during the look at " << t << " s";
    }
    // Answering the returns too would make six.
    hubWaitUntil(sim, looks[2] + 8.0);
    EXPECT_LE(client->count(G::LOOK_AT_SCREEN), 5);
    service->stop();
}

}  // namespace
}  // namespace velto
