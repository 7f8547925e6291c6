#include "modules/DonDoffModule.h"

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>

#include "modules/ModuleTestSupport.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

// The modules read the boot clock through libutils; this definition takes its
// place in this binary, so that a test can let hours of wear pass at once.
namespace {
std::atomic<int64_t> gFrozenClockMs{0};  // 0: the real clock
}
namespace android {
int64_t elapsedRealtime() {
    if (gFrozenClockMs.load() != 0) return gFrozenClockMs.load();
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
}  // namespace android

namespace velto {
namespace {

using test::LogCapture;
typedef GazeServiceInterface G;

TEST(DonDoffModule, ForwardsTheHubsVerdictsAndRegistersOnce) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    sensor.setRawFifoText(android::String8("12 7 "));
    android::sp<test::GestureRecorder> events = new test::GestureRecorder();
    GazeService::getInstance()->setGazeListener(events);
    DonDoffModule module(&sensor);

    EXPECT_TRUE(module.requiresCalibration());
    EXPECT_EQ(UNSUPPORTED, module.start(false, 1000));
    EXPECT_EQ(OK, module.start(true, -1));  // one-shot means nothing here
    EXPECT_EQ(OK, module.start());
    EXPECT_TRUE(LogCapture::contains("DonDoffModule was already running...  nothing to do."));
    EXPECT_EQ(1u, sensor.numDonDoffListeners());

    gFrozenClockMs.store(1000000);
    sensor.deliverDonDoff(true);
    sensor.deliverDonDoff(false);
    sensor.deliverDonDoff(false);
    EXPECT_EQ(std::vector<G::EyeGesture>({G::DON, G::DOFF, G::DOFF}), events->gestures());
    EXPECT_TRUE(LogCapture::contains("MCU Raw FIFO: 12 7 "));
    const std::string dump = module.dump().string();
    EXPECT_EQ(0u, dump.find("Elapsed don time (secs): 0\nLast don event (secs): 0\nLast doff event (secs): 0\n")) << dump;
    // An hour worn shows as seconds once off; while worn again, the running
    // period is added to the total undivided (both in ms).
    sensor.deliverDonDoff(true);
    gFrozenClockMs.store(1000000 + 3600999);
    sensor.deliverDonDoff(false);
    EXPECT_NE(std::string::npos,
              module.dump().find("Elapsed don time (secs): 3600\nLast don event (secs): 3600\nLast doff event (secs): 0\n"))
            << module.dump().string();
    gFrozenClockMs.store(1000000 + 3601000);  // a later millisecond: worn again
    sensor.deliverDonDoff(true);
    gFrozenClockMs.store(1000000 + 3661000);
    EXPECT_NE(std::string::npos, module.dump().find("Elapsed don time (secs): 3660999\nLast don event (secs): 60\n"))
            << module.dump().string();
    sensor.deliverDonDoff(false);
    sensor.deliverDonDoff(true);  // on and off again within one millisecond: off
    sensor.deliverDonDoff(false);
    EXPECT_NE(std::string::npos, module.dump().find("Elapsed don time (secs): 3660\n")) << module.dump().string();
    gFrozenClockMs.store(0);

    EXPECT_EQ(OK, module.stop());
    EXPECT_EQ(0u, sensor.numDonDoffListeners());
    EXPECT_EQ(OK, module.stop());
    EXPECT_TRUE(LogCapture::contains("DonDoffModule was not running and stop was requested.  Nothing to do..."));
    GazeService::getInstance()->setGazeListener(nullptr);
}

TEST(DonDoffModule, CalibrationRunsThroughTheCalibratorAndTheParameterFile) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    DonDoffModule module(&sensor);
    module.serviceReady();  // no parameter file yet
    EXPECT_TRUE(LogCapture::contains("Failed to load calibration!", ANDROID_LOG_WARN));
    EXPECT_FALSE(module.hasValidCalibration());
    EXPECT_FALSE(module.canStart());

    ASSERT_EQ(OK, module.beginCalibrationInterval());
    EXPECT_EQ(1u, sensor.numDataListeners());
    for (int i = 0; i < 40; ++i) sensor.deliverSample(i % 2 == 0 ? 300 : 1300, 1000 + i);
    EXPECT_TRUE(module.isCalibrationComplete());
    ASSERT_EQ(OK, module.endCalibrationInterval());
    EXPECT_EQ(FAILED, module.endCalibrationInterval());
    EXPECT_EQ(OK, module.commitCalibration());
    ASSERT_EQ(OK, module.saveCalibration());
    EXPECT_EQ(1007, sensor.params().donThreshold);  // 300 + 1000^0.95
    EXPECT_EQ(425, sensor.params().doffThreshold);  // 300 + 1000^0.7
    EXPECT_TRUE(module.hasValidCalibration());

    // Thresholds cannot change while the hub's detector is on.
    ASSERT_EQ(OK, module.start());
    EXPECT_EQ(FAILED, module.loadCalibration());
    EXPECT_TRUE(LogCapture::contains("Cannot change the dondoff thresholds when the detector is enabled!"));
    ASSERT_EQ(OK, module.stop());
    sensor.failParameterAccess(true);  // the hub does not take the defaults
    EXPECT_EQ(FAILED, module.clearCalibration());
    sensor.failParameterAccess(false);
    for (int n = 1; n <= 3; ++n) {  // nor one of the three thresholds
        sensor.failNthParameterWrite(n);
        EXPECT_EQ(FAILED, module.clearCalibration()) << n;
    }
    EXPECT_EQ(OK, module.clearCalibration());
    EXPECT_EQ(450, sensor.params().donThreshold);
    EXPECT_EQ(OK, module.loadCalibration());
    EXPECT_EQ(1007, sensor.params().donThreshold);
}

TEST(DonDoffModule, WithoutSensorEveryCallAnswersInsteadOfCrashing) {
    test::ScopedLogCapture capture;
    DonDoffModule module(nullptr);
    EXPECT_TRUE(LogCapture::contains("Error: cannot construct a DonDoffModule with a NULL prox sensor!"));
    EXPECT_EQ(NO_SENSOR, module.start());
    EXPECT_EQ(NO_SENSOR, module.stop());
    EXPECT_EQ(FAILED, module.beginCalibrationInterval());
    EXPECT_FALSE(module.isCalibrationComplete());
    EXPECT_EQ(android::String8("DonDoffModule 1.0"), module.getVersionString());
}

}  // namespace
}  // namespace velto
