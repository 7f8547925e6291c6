#include "modules/LookAtScreenModule.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "modules/ModuleTestSupport.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

using test::LogCapture;

const char kParams[] = "/data/system/gaze/las_params_test.txt";
const char kDetectorSet[] = "/system/etc/gaze/las_test_set.txt";

class LookAtScreenModuleTest : public ::testing::Test {
protected:
    LookAtScreenModuleTest() : module(&sensor, kParams, kDetectorSet) {
        // One cascade that never fires; the module's rules do not depend on it.
        test::writeFile(test::underRoot("/system/etc/gaze/las_test_cascade.txt"),
                        "1 8 8.0 1\n1 0.9\n0 0 2 2 0 1 1.0 0.0\n");
        test::writeFile(test::underRoot(kDetectorSet), "las_test_cascade.txt\n");
    }
    void feed(int n) {
        for (int i = 0; i < n; ++i) sensor.deliverSample(700, t += 31250000);
    }

    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    LookAtScreenModule module;
    int64_t t = 1000000000;
};

TEST_F(LookAtScreenModuleTest, RefusesToStartUntilTheThresholdIsLoaded) {
    module.serviceReady();
    EXPECT_TRUE(LogCapture::contains("Module is uncalibrated."));
    EXPECT_FALSE(module.hasValidCalibration());
    EXPECT_EQ(FAILED, module.start());
    EXPECT_TRUE(LogCapture::contains("Not calibrated. Can not start LookAtScreenModule."));

    test::writeFile(test::underRoot(kParams), "not a number\n");
    EXPECT_EQ(FAILED, module.loadCalibration());
    EXPECT_TRUE(LogCapture::contains("Error reading parameters from file!"));

    test::writeFile(test::underRoot(kParams), "500.0\n");
    EXPECT_EQ(OK, module.loadCalibration());  // applied, but flagged from 500 on
    EXPECT_TRUE(LogCapture::contains("Minimum LAS magnitude is suspiciously high: 500.000000."));
    test::writeFile(test::underRoot(kParams), "24.000000\n");
    EXPECT_EQ(OK, module.loadCalibration());
    EXPECT_TRUE(module.hasValidCalibration());
    EXPECT_EQ(OK, module.clearCalibration());
    EXPECT_FALSE(module.hasValidCalibration());
    const std::string dump = module.dump().string();
    EXPECT_EQ(0u, dump.find(" isDetectorRunningNow: false\n thresh: 24.000000\n\nLookAtScreenDetector:\n")) << dump;

    // Without its detector a threshold has nothing to apply to.
    LookAtScreenModule blind(&sensor, kParams, "/system/etc/gaze/absent_set.txt");
    blind.serviceReady();
    EXPECT_EQ(FAILED, blind.loadCalibration());
    EXPECT_FALSE(blind.hasValidCalibration());
}

TEST_F(LookAtScreenModuleTest, ThresholdsThatMakeNoSenseAreRefusedAndTheOneInForceStays) {
    test::writeFile(test::underRoot(kParams), "24.0\n");
    module.serviceReady();
    ASSERT_TRUE(module.hasValidCalibration());
    const struct {
        const char* text;
        const char* refusal;
    } kBadFiles[] = {
            {"nan\n", "Refused threshold = nan in "},
            {"-inf\n", "Refused threshold = -inf in "},
            {"-5\n", "Refused threshold = -5 in "},
            {"0\n", "Refused threshold = 0 in "},
    };
    for (const auto& bad : kBadFiles) {
        SCOPED_TRACE(bad.text);
        test::writeFile(test::underRoot(kParams), bad.text);
        LogCapture::clear();
        EXPECT_EQ(FAILED, module.loadCalibration());
        EXPECT_EQ(1u, LogCapture::count("Refused ", ANDROID_LOG_ERROR));
        EXPECT_TRUE(LogCapture::contains(bad.refusal + test::underRoot(kParams)));
        EXPECT_FALSE(module.hasValidCalibration());
        EXPECT_EQ(FAILED, module.start());
        // The threshold in force is not replaced.
        EXPECT_NE(std::string::npos, std::string(module.dump().string()).find(" thresh: 24.000000\n"));
    }
}

TEST_F(LookAtScreenModuleTest, TimeoutsAndCalibrationWhileRunning) {
    test::writeFile(test::underRoot(kParams), "24.0\n");
    module.serviceReady();
    ASSERT_TRUE(module.hasValidCalibration());

    ASSERT_EQ(OK, module.start(false, 10));  // less than a sample: never times out
    ASSERT_EQ(1u, sensor.numDataListeners());
    EXPECT_EQ(500, sensor.dataListeners()[0].historyMs);
    feed(100);
    EXPECT_TRUE(module.isRunning());
    EXPECT_EQ(FAILED, module.beginCalibrationInterval());
    EXPECT_TRUE(LogCapture::contains("LAS calibration must be done when LAS detection is off."));
    EXPECT_EQ(OK, module.start(false, 1000));  // running: the new count of 32 applies
    feed(31);
    EXPECT_TRUE(module.isRunning());
    feed(1);
    EXPECT_FALSE(module.isRunning());
    EXPECT_TRUE(LogCapture::contains("LookAtScreenModule timeout.. stopping."));
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_FALSE(module.isCalibrationComplete());
}

TEST_F(LookAtScreenModuleTest, AFailedSaveRemovesTheParameterFile) {
    test::writeFile(test::underRoot(kParams), "24.0\n");
    module.serviceReady();
    ASSERT_EQ(OK, module.beginCalibrationInterval());
    for (int i = 0; i < 10; ++i) sensor.deliverSample(700, t += 31250000);  // far too few
    ASSERT_EQ(OK, module.endCalibrationInterval());
    EXPECT_EQ(FAILED, module.saveCalibration());
    EXPECT_TRUE(LogCapture::contains("Successfully deleted calibration file."));
    EXPECT_NE(0, access(test::underRoot(kParams).c_str(), F_OK));
}

TEST_F(LookAtScreenModuleTest, OneShotStopsAtTheFirstLookAndAStopEndsTheCalibration) {
    // The later half of the window above the earlier half: a look up.
    test::writeFile(test::underRoot("/system/etc/gaze/las_test_cascade.txt"), "1 16 8.0 1\n1 0.0\n0 0 6 4 0 -1 1.0 -0.5\n");
    test::writeFile(test::underRoot(kParams), "24.0\n");
    module.serviceReady();
    android::sp<test::GestureRecorder> looks = new test::GestureRecorder();
    GazeService::getInstance()->setGazeListener(looks);
    auto lookTwice = [this](uint32_t level) {
        for (int look = 0; look < 2; ++look) {
            for (int i = 0; i < 40; ++i) sensor.deliverSample(700, t += 31250000);
            for (int i = 0; i < 40; ++i) sensor.deliverSample(level, t += 31250000);
        }
    };
    ASSERT_EQ(OK, module.start(false, -1));
    lookTwice(720);  // weaker than the wearer's threshold: no look
    EXPECT_EQ(0, looks->count(GazeServiceInterface::LOOK_AT_SCREEN));
    lookTwice(1000);
    EXPECT_EQ(2, looks->count(GazeServiceInterface::LOOK_AT_SCREEN));
    ASSERT_EQ(OK, module.stop());

    ASSERT_EQ(OK, module.start(true, -1));
    lookTwice(1000);
    EXPECT_EQ(3, looks->count(GazeServiceInterface::LOOK_AT_SCREEN));
    EXPECT_FALSE(module.isRunning());
    EXPECT_EQ(0u, sensor.numDataListeners());
    GazeService::getInstance()->setGazeListener(nullptr);

    // A calibration opened before the start ends with the module's stop.
    ASSERT_EQ(OK, module.beginCalibrationInterval());
    ASSERT_EQ(OK, module.start());
    EXPECT_EQ(2u, sensor.numDataListeners());
    ASSERT_EQ(OK, module.stop());
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_EQ(FAILED, module.endCalibrationInterval());
}

}  // namespace
}  // namespace velto
