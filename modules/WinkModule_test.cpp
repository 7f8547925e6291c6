#include "modules/WinkModule.h"

#include <gtest/gtest.h>

#include "modules/ModuleTestSupport.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using test::LogCapture;
typedef GazeServiceInterface G;

const int64_t kPeriodNs = 31250000;

class WinkModuleTest : public ::testing::Test {
protected:
    WinkModuleTest()
        : detector(G::WINK), service(new test::RecordingService()),
          module(&sensor, &detector, service.get(), "/data/system/gaze/wink_test.txt") {}

    void feed(int n, uint32_t value = 500, int64_t step = kPeriodNs) {
        for (int i = 0; i < n; ++i) sensor.deliverSample(value, t += step);
    }
    size_t highPowerExits() { return LogCapture::count("Switching off high power wink mode.  Removing ProxDataListener."); }

    test::FakeProximitySensor sensor;
    test::ScriptedDetector detector;
    android::sp<test::RecordingService> service;
    WinkModule module;
    int64_t t = 1000000000;
    test::ScopedLogCapture capture;
};

TEST_F(WinkModuleTest, ALowPowerWinkIsValidatedForFiftyTwoSamples) {
    EXPECT_NE(std::string::npos, module.dump().find("Last prox event (secs): 0\nLast LP wink event (secs): 0\n"));  // never
    EXPECT_EQ(UNSUPPORTED, module.start(false, 5000));
    EXPECT_FALSE(module.isRunning());
    ASSERT_EQ(OK, module.start());
    EXPECT_EQ(1u, sensor.numLowPowerWinkListeners());
    EXPECT_EQ(0u, sensor.numDataListeners());  // starting does not enter high power

    sensor.deliverLowPowerWink();
    ASSERT_EQ(1u, sensor.numDataListeners());
    EXPECT_EQ(1625, sensor.dataListeners()[0].historyMs);  // the suspected wink is replayed
    feed(10);
    sensor.deliverLowPowerWink();  // within the hold-off: not counted, budget not extended
    EXPECT_EQ(1u, sensor.numDataListeners());
    feed(41);
    EXPECT_EQ(0u, highPowerExits());
    feed(1);
    EXPECT_EQ(1u, highPowerExits());
    EXPECT_EQ(0u, sensor.numDataListeners());
    feed(1);  // the budget is spent: no longer classified
    EXPECT_EQ(52u, detector.seen.size());
    const std::string dump = module.dump().string();
    EXPECT_NE(std::string::npos, dump.find("Number of LP events: 1\n"));
    EXPECT_NE(std::string::npos, dump.find("High power mode: off\n"));
    sensor.deliverLowPowerWink();  // past the hold-off: a new event
    EXPECT_NE(std::string::npos, module.dump().find("Number of LP events: 2\n"));
}

TEST_F(WinkModuleTest, GapsStaleSamplesAndFlaggedSamplesShapeTheBudget) {
    ASSERT_EQ(OK, module.start());
    sensor.deliverLowPowerWink();
    feed(10);
    feed(1, 500, 47000000);  // a lost sample: the validation starts over (then counts this one)
    EXPECT_TRUE(LogCapture::contains("WARNING: Timestamp gap: 47 msecs, count was 42, reset counter"));
    feed(1, 500, 46875000);  // exactly one and a half periods: no gap
    EXPECT_EQ(1u, LogCapture::count("Timestamp gap"));
    sensor.deliverSample(500, t);  // same time stamp: ignored entirely
    EXPECT_TRUE(LogCapture::contains("Ignore stale timestamp!"));
    EXPECT_EQ(12u, detector.seen.size());
    feed(49);
    EXPECT_EQ(0u, highPowerExits());
    feed(1, 0x4000 | 500);  // flagged by the hub: raised to 20, this one counted
    feed(18);
    EXPECT_EQ(0u, highPowerExits());
    feed(1);
    EXPECT_EQ(1u, highPowerExits());
}

TEST_F(WinkModuleTest, ConfirmedWinksAreReportedAndOneShotStops) {
    detector.detectAt = {900};
    ASSERT_EQ(OK, module.start(true, -1));
    sensor.deliverLowPowerWink();
    feed(5);
    feed(1, 900);
    EXPECT_EQ(std::vector<G::EyeGesture>({G::WINK}), service->events);
    EXPECT_FALSE(module.isRunning());
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_EQ(0u, sensor.numLowPowerWinkListeners());
    EXPECT_EQ(OK, module.stop());
    EXPECT_TRUE(LogCapture::contains("stop called when not running?"));
}

TEST_F(WinkModuleTest, CalibrationTakesTheWholeStream) {
    module.serviceReady();  // nothing saved yet
    EXPECT_TRUE(LogCapture::contains("ERROR: loading calibration! ", ANDROID_LOG_ERROR));
    EXPECT_TRUE(LogCapture::contains("Can not load calibration from file:", ANDROID_LOG_ERROR));
    EXPECT_FALSE(module.canStart());
    ASSERT_EQ(OK, module.start());
    sensor.deliverLowPowerWink();
    feed(3);
    EXPECT_EQ(OK, module.beginCalibrationInterval());
    EXPECT_TRUE(LogCapture::contains("Continue to stay in high power wink mode for 9223372036854775807 samples."));
    EXPECT_EQ(1, sensor.flushCount());
    feed(200);
    EXPECT_EQ(0u, highPowerExits());
    EXPECT_FALSE(module.isCalibrationComplete());
    detector.needMore = false;
    EXPECT_TRUE(module.isCalibrationComplete());
    EXPECT_EQ(OK, module.endCalibrationInterval());
    EXPECT_EQ(1u, highPowerExits());
    EXPECT_EQ(FAILED, module.endCalibrationInterval());  // no interval open

    EXPECT_EQ(OK, module.commitCalibration());
    EXPECT_EQ(FAILED, module.saveCalibration());  // nothing complete to save
    EXPECT_TRUE(LogCapture::contains("No complete wink calibration to save."));
    detector.calibrated = true;
    EXPECT_EQ(OK, module.saveCalibration());
    detector.applyResult = false;
    EXPECT_EQ(FAILED, module.saveCalibration());
    EXPECT_TRUE(LogCapture::contains("Can not save calibration data to"));
    EXPECT_TRUE(module.hasValidCalibration());
    EXPECT_EQ(OK, module.loadCalibration());
    EXPECT_EQ(OK, module.clearCalibration());
    EXPECT_FALSE(module.canStart());

    // After a restart the saved calibration is in force.
    test::ScriptedDetector restarted(G::WINK);
    restarted.saved = true;
    WinkModule again(&sensor, &restarted, service.get(), "/data/system/gaze/wink_test.txt");
    LogCapture::clear();
    again.serviceReady();
    EXPECT_TRUE(again.canStart());
    EXPECT_FALSE(LogCapture::contains("Can not load calibration"));
    EXPECT_EQ(std::vector<std::string>({"/data/system/gaze/wink_test.txt"}), restarted.loadedFrom);
    EXPECT_TRUE(LogCapture::contains("... done loading calibration."));
}

TEST(WinkModule, TheServicesModuleStartsWithNothingSeenAndWithoutItsDetectorCannotStart) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    WinkModule module(&sensor);  // no detector files under this root
    EXPECT_TRUE(LogCapture::contains("Failed to create a wink detector!  The module will be invalid!", ANDROID_LOG_ERROR));
    EXPECT_NE(std::string::npos, module.dump().find("Last prox event (secs): 0\nLast LP wink event (secs): 0\n"));
    EXPECT_EQ(FAILED, module.start());
}

}  // namespace
}  // namespace velto
