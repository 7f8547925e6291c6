#include <android/log.h>
#include <gtest/gtest.h>
#include <math.h>

#include <string>
#include <vector>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "detectors/ScriptedBoostingDetector_test.h"
#include "tests/harness/FakeProximitySensor.h"
#include "service/GazeServiceInterface.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

typedef CalibratedMultiDurationWinkDetector::GestureInfo GestureInfo;

GestureInfo wink(float magnitude, float duration) {
    GestureInfo info;
    info.magnitude = magnitude;
    info.duration = duration;
    return info;
}

// Samples 100 ms apart; the scripted detectors decide what fires.
int sampleAt(CalibratedMultiDurationWinkDetector* d, int call, float value = 1000.0f) {
    return d->update(static_cast<long long>(call) * 100000000LL, &value, 1);
}

TEST(WinkCalibration, ReportsOneAveragedWinkAfterTheDetectionsSettle) {
    test::FakeProximitySensor sensor;
    CalibratedMultiDurationWinkDetector d(&sensor);
    auto* a = new test::ScriptedBoostingDetector();
    auto* b = new test::ScriptedBoostingDetector();
    d.addDetector(a, Interval<float>(280.0f, 500.0f));
    d.addDetector(b, Interval<float>(300.0f, 700.0f));
    a->fireAt(3, 400.0f, 400.0f);
    a->fireAt(4, 400.0f, 400.0f);
    b->fireAt(4, 500.0f, 500.0f);
    a->fireAt(18, 400.0f, 400.0f);  // settles 1.4 s after the first: within the minimum interval
    ASSERT_TRUE(d.startCalibrationInterval());
    EXPECT_FALSE(d.startCalibrationInterval());  // one interval at a time
    EXPECT_TRUE(d.needMoreCalibrationEyeGestures());
    std::vector<int> answers;
    for (int call = 0; call < 30; ++call) answers.push_back(sampleAt(&d, call));
    std::vector<int> expected(30, -1);
    expected[9] = GazeServiceInterface::WINK;  // 6 samples after the first firing, 5 after the last
    EXPECT_EQ(expected, answers);
    ASSERT_EQ(1u, d.getCalibrationWinks().size());
    EXPECT_FALSE(d.isCalibrated());
    EXPECT_EQ(450.0f, d.getCalibrationWinks()[0].magnitude);  // both detectors of the latest firing
    EXPECT_EQ(450.0f, d.getCalibrationWinks()[0].duration);
    EXPECT_EQ(1, d.getNumCalibrationWinksFromDetector(0));
    EXPECT_EQ(1, d.getNumCalibrationWinksFromDetector(1));
    EXPECT_EQ(30, d.getNumCalibrationSamples());
    ASSERT_TRUE(d.endCalibrationInterval());
    EXPECT_FALSE(d.endCalibrationInterval());
    ASSERT_TRUE(d.startCalibrationInterval());  // a new interval counts afresh
    EXPECT_EQ(0, d.getNumCalibrationWinksFromDetector(0));
    EXPECT_EQ(0, d.getNumCalibrationWinksFromDetector(1));
}

TEST(WinkCalibration, OutliersAreRemovedAndTwoConsistentWinksCalibrate) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    CalibratedMultiDurationWinkDetector d(&sensor);
    ASSERT_TRUE(d.startCalibrationInterval());
    EXPECT_TRUE(d.updateCalibrationOnWink(wink(400.0f, 400.0f)));
    EXPECT_FALSE(d.updateCalibrationOnWink(wink(450.0f, 710.0f)));  // too long: not counted
    EXPECT_TRUE(test::LogCapture::contains("Wink duration is out of the required range: 710 ms"));
    EXPECT_FALSE(d.updateCalibrationOnWink(wink(NAN, 400.0f)));  // would spoil every range
    EXPECT_TRUE(test::LogCapture::contains("magnitude must be positive."));
    EXPECT_EQ(1, d.getNumWinksInLastCalibrationInterval());
    EXPECT_TRUE(d.updateCalibrationOnWink(wink(450.0f, 420.0f)));  // ratio 0.89, difference 50
    EXPECT_TRUE(d.isCalibrated());
    EXPECT_FALSE(d.needMoreCalibrationEyeGestures());
    EXPECT_FALSE(d.updateCalibrationOnWink(wink(440.0f, 420.0f)));
    EXPECT_TRUE(test::LogCapture::contains("Wink detection has been calibrated. Ignore this wink.", ANDROID_LOG_WARN));
    d.endCalibrationInterval();

    ASSERT_TRUE(d.startCalibrationInterval());
    EXPECT_FALSE(d.isCalibrated());
    d.updateCalibrationOnWink(wink(400.0f, 400.0f));
    d.updateCalibrationOnWink(wink(520.0f, 500.0f));  // 120 apart: the weaker one goes
    EXPECT_TRUE(test::LogCapture::contains("Remove outlier with magnitude 400, and duration 400 ms"));
    ASSERT_EQ(1u, d.getCalibrationWinks().size());
    EXPECT_EQ(520.0f, d.getCalibrationMagnitudeRange().min);
    EXPECT_EQ(500.0f, d.getCalibrationDurationRangeMs().min);
    EXPECT_TRUE(d.needMoreCalibrationEyeGestures());  // a third wink after an outlier
    d.updateCalibrationOnWink(wink(500.0f, 460.0f));
    EXPECT_TRUE(d.isCalibrated());
    EXPECT_EQ(5, d.getTotalNumCalibrationWinks());
    // Centre 510; durations 460..500, margin 170: [410, 710] and [310, 650].
    EXPECT_EQ(410.0f, d.getAcceptableMagnitudeRange().min);
    EXPECT_EQ(710.0f, d.getAcceptableMagnitudeRange().max);
    EXPECT_EQ(310.0f, d.getAcceptableDurationRangeMs().min);
    EXPECT_EQ(650.0f, d.getAcceptableDurationRangeMs().max);
    d.endCalibrationInterval();

    // A ratio of exactly 0.8 and a difference of exactly 100 still belong together.
    ASSERT_TRUE(d.startCalibrationInterval());
    d.updateCalibrationOnWink(wink(400.0f, 400.0f));
    d.updateCalibrationOnWink(wink(500.0f, 400.0f));
    EXPECT_EQ(2u, d.getCalibrationWinks().size());
    EXPECT_TRUE(d.isCalibrated());
    d.endCalibrationInterval();
    EXPECT_TRUE(d.clearCalibration());
    EXPECT_FALSE(d.isCalibrated());
    EXPECT_EQ(0, d.getTotalNumCalibrationWinks());
    EXPECT_EQ(0, d.getNumWinksInLastCalibrationInterval());
    EXPECT_EQ(0u, d.getCalibrationWinks().size());
}

TEST(WinkCalibration, AcceptableRangesAndTheHighPowerFile) {
    test::ScopedLogCapture capture;
    CalibratedMultiDurationWinkDetector d(nullptr);
    for (int i = 0; i < 3; ++i) d.addDetector(new test::ScriptedBoostingDetector(), Interval<float>(280.0f, 800.0f));
    const char path[] = "/data/system/gaze/wink_calibration_test.txt";
    test::writeFile(test::underRoot(path), "450 550\n400 400 2\n");
    ASSERT_TRUE(d.loadHighPowerCalibration(path));
    EXPECT_EQ(2, d.getActiveDetectorIndex());
    EXPECT_EQ(400.0f, d.getAcceptableMagnitudeRange().min);  // centre 500
    EXPECT_EQ(700.0f, d.getAcceptableMagnitudeRange().max);
    EXPECT_EQ(280.0f, d.getAcceptableDurationRangeMs().min);  // margin 150, floor 280
    EXPECT_EQ(550.0f, d.getAcceptableDurationRangeMs().max);
    test::writeFile(test::underRoot(path), "40 60 400 400 0");
    ASSERT_TRUE(d.loadHighPowerCalibration(path));
    EXPECT_EQ(36.0f, d.getAcceptableMagnitudeRange().min);  // centre 50
    EXPECT_EQ(90.0f, d.getAcceptableMagnitudeRange().max);

    // Without the index the load fails, but the ranges read stay.
    test::writeFile(test::underRoot(path), "400 450 300 500\n");
    EXPECT_FALSE(d.loadHighPowerCalibration(path));
    EXPECT_TRUE(test::LogCapture::contains("Can not load active detector index from file"));
    EXPECT_EQ(400.0f, d.getCalibrationMagnitudeRange().min);
    EXPECT_EQ(500.0f, d.getCalibrationDurationRangeMs().max);
    EXPECT_FALSE(d.loadHighPowerCalibration("/data/system/gaze/absent.txt"));
    EXPECT_TRUE(test::LogCapture::contains("Can not open file " + test::underRoot("/data/system/gaze/absent.txt") +
                                           " for read: No such file or directory"));

    ASSERT_TRUE(d.saveHighPowerCalibration("/data/system/gaze/new/wink_calibration.txt"));
    EXPECT_EQ("400.000000 450.000000 300.000000 500.000000 0",
              test::readFile(test::underRoot("/data/system/gaze/new/wink_calibration.txt")));
}

TEST(WinkCalibration, ChoosesTheDetectorThatCaughtMostWinksAndFitsTheirDuration) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    CalibratedMultiDurationWinkDetector d(&sensor);
    // Detector 0 catches everything but was trained for short winks; 1 does not
    // cover the wearer's durations; 2 and 3 both do, 3 more closely; 4 misses
    // a wink; 5 ties with 3 and so does not replace it.
    const float ranges[][2] = {{100, 250}, {250, 450}, {300, 600}, {280, 560}, {300, 560}, {280, 560}};
    std::vector<test::ScriptedBoostingDetector*> script;
    for (const auto& r : ranges) {
        script.push_back(new test::ScriptedBoostingDetector());
        d.addDetector(script.back(), Interval<float>(r[0], r[1]));
        script.back()->fireAt(40, 450.0f, 420.0f);
    }
    for (int i : {0, 1, 2, 3, 5}) script[i]->fireAt(10, 400.0f, 400.0f);
    ASSERT_TRUE(d.startCalibrationInterval());
    for (int call = 0; call < 50; ++call) sampleAt(&d, call);
    ASSERT_TRUE(d.isCalibrated());
    // Wearer's range [280, 562.5]: detector 0 is taken first without the range
    // test, 1 is skipped, 2 and then 3 win on their overlap ratio, 4 has fewer winks.
    EXPECT_EQ(562.5f, d.getAcceptableDurationRangeMs().max);
    EXPECT_EQ(3, d.getActiveDetectorIndex());
    EXPECT_TRUE(test::LogCapture::contains("First candidate. index=0, num detected winks=2, overlap ratio=0.000000."));
    EXPECT_TRUE(test::LogCapture::contains("Skip detector 1 due to mismatched duration range."));
    EXPECT_TRUE(test::LogCapture::contains("Better candidate. index=2"));
    EXPECT_TRUE(test::LogCapture::contains("Better candidate. index=3"));
    EXPECT_FALSE(test::LogCapture::contains("Better candidate. index=4"));
    EXPECT_FALSE(test::LogCapture::contains("Better candidate. index=5"));

    EXPECT_FLOAT_EQ(0.5f, CalibratedMultiDurationWinkDetector::computeOverlapRatio(Interval<float>(0, 10),
                                                                                   Interval<float>(5, 15)));
    EXPECT_EQ(0.0f, CalibratedMultiDurationWinkDetector::computeOverlapRatio(Interval<float>(0, 10),
                                                                             Interval<float>(10, 15)));
    EXPECT_EQ(0.0f, CalibratedMultiDurationWinkDetector::computeOverlapRatio(Interval<float>(10, 0),
                                                                             Interval<float>(5, 15)));
}

TEST(WinkCalibration, LowPowerThresholdsGoToTheHubAndTheParameterFile) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    const char path[] = "/data/system/gaze/wink_calibration.txt";
    {
        CalibratedMultiDurationWinkDetector d(&sensor);
        d.addDetector(new test::ScriptedBoostingDetector(), Interval<float>(280.0f, 800.0f));
        test::writeFile(test::underRoot(path), "450 550 400 400 0");
        ASSERT_TRUE(d.loadHighPowerCalibration(path));  // acceptable magnitudes [400, 700]
        EXPECT_FALSE(d.applyAndSaveCalibration(path));
        EXPECT_TRUE(test::LogCapture::contains("There are no calibration values."));

        ASSERT_TRUE(d.startCalibrationInterval());
        for (int call = 0; call < 4; ++call) sampleAt(&d, call, call < 2 ? 100.0f : 4001.0f);
        EXPECT_EQ(4, d.getNumOutOfRangeCalibrationSamples());
        EXPECT_FALSE(d.applyAndSaveCalibration(path));
        EXPECT_TRUE(test::LogCapture::contains("There are too many out-of-range values."));
        for (int call = 4; call < 8; ++call) sampleAt(&d, call, call < 6 ? 250.0f : 4000.0f);  // bounds are in range
        EXPECT_EQ(4, d.getNumOutOfRangeCalibrationSamples());
        d.endCalibrationInterval();

        // 710 and 390 at full gain need gain 1: max 355, min 195.
        ASSERT_TRUE(d.applyAndSaveCalibration(path));
        EXPECT_EQ(1, sensor.params().gain);
        EXPECT_EQ(355, sensor.params().winkMax);
        EXPECT_EQ(195, sensor.params().winkMin);
        EXPECT_NE(std::string::npos,
                  test::readFile(test::underRoot("/data/system/gaze/gaze_params.txt")).find("WINK_MAX = 355\n"));
    }
    test::FakeProximitySensor freshHub;
    CalibratedMultiDurationWinkDetector reloaded(&freshHub);
    reloaded.addDetector(new test::ScriptedBoostingDetector(), Interval<float>(280.0f, 800.0f));
    ASSERT_TRUE(reloaded.loadCalibration(path));
    EXPECT_TRUE(reloaded.isCalibrated());
    EXPECT_EQ(0, reloaded.getActiveDetectorIndex());
    EXPECT_EQ(195, freshHub.params().winkMin);

    CalibratedMultiDurationWinkDetector noSensor(nullptr);
    noSensor.addDetector(new test::ScriptedBoostingDetector(), Interval<float>(280.0f, 800.0f));
    EXPECT_FALSE(noSensor.startCalibrationInterval());
    EXPECT_FALSE(noSensor.loadCalibration(path));  // the hub half cannot be applied
    EXPECT_FALSE(noSensor.isCalibrated());
}

}  // namespace
}  // namespace velto
