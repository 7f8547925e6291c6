// The shipped detector files (etc/gaze, installed by the simulator) on a
// wearer who blinks spontaneously, as on a device: the service detects the
// deliberate gestures and leaves the blinks alone.
#include <atomic>
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
    return waitFor([&] { return sim.command(command).compare(0, 2, "OK") == 0; }, 3000);
}

// Sleeps `simSeconds` of hub time at the given speed.
void simSleep(double simSeconds, double speed) { usleep(static_cast<useconds_t>(simSeconds / speed * 1e6)); }

TEST(ShippedModels, DeliberateGesturesAreFoundAmongSpontaneousBlinks) {
    const double speed = 4;
    hubsim::HubSimProcess sim;
    e2e::startHub(&sim, e2e::scenario("seed 21\nwearer baseline 1300\nwearer blink-rate 15\nwearer noise 6\n"
                                      "wearer blink-amp 110\nwearer wink-amp 260\nwearer look-shift 140\n"
                                      "wearer sample-loss-per-hour 0\n",
                                      speed));
    setenv("VELTOGAZE_SERIAL", "G1", 1);
    GazeService* service = GazeService::getInstance();
    android::sp<Counter> client = new Counter();
    service->setGazeListener(client);
    ASSERT_TRUE(service->start());

    // Calibrations, as a first-time wearer does them.
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::WINK));
    for (int i = 0; i < 3 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        simSleep(1.0, speed);
        ASSERT_TRUE(ok(sim, "wink 500ms"));
        simSleep(2.0, speed);
    }
    ASSERT_TRUE(service->isCalibrationCompleteForGesture(G::WINK)) << test::LogCapture::dump();
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::WINK));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::WINK));
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
    simSleep(1.0, speed);
    ASSERT_TRUE(ok(sim, "look 3s"));
    simSleep(5.0, speed);
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN));
    ASSERT_TRUE(service->loadCalibrationForGesture(G::LOOK_AT_SCREEN));

    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        ASSERT_TRUE(service->startGestureDetector(g, false, -1)) << G::EyeGesture(g);
    }
    const int winksBefore = client->count(G::WINK);
    simSleep(2.0, speed);
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(ok(sim, "double-blink"));
        simSleep(4.0, speed);
        ASSERT_TRUE(ok(sim, "wink 500ms"));
        simSleep(4.0, speed);
        ASSERT_TRUE(ok(sim, "look 3s"));
        simSleep(6.0, speed);
    }
    simSleep(2.0, speed);
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
