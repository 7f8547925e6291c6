#include "calibration/DonDoffCalibrator.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/harness/FakeProximitySensor.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/SaveFaults.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

class NoDonDoff : public ProximitySensorInterface::DonDoffListener {
    void onDonDoff(bool) override {}
};

void deliver(test::FakeProximitySensor* sensor, const std::vector<uint32_t>& values) {
    for (uint32_t v : values) sensor->deliverSample(v, 0);
}

std::vector<uint32_t> repeat(uint32_t value, size_t n) { return std::vector<uint32_t>(n, value); }

TEST(DonDoffCalibrator, ThresholdsFollowTheClusterCentresWithTruncation) {
    test::FakeProximitySensor sensor;
    android::sp<DonDoffCalibrator> calibrator = new DonDoffCalibrator(&sensor);
    ASSERT_TRUE(calibrator->beginCalibrationInterval());
    EXPECT_EQ(1u, sensor.numDataListeners());
    // Off the head at 300; on the head at 1100 and 1500 (centre 1300).
    deliver(&sensor, repeat(300, 20));
    deliver(&sensor, repeat(1100, 10));
    deliver(&sensor, repeat(1500 | 0x4000, 10));  // the hub flag is not part of the reading
    ASSERT_TRUE(calibrator->endCalibrationInterval());
    EXPECT_EQ(0u, sensor.numDataListeners());

    ASSERT_TRUE(calibrator->updateAndSaveCalibration());
    // 300 + 1000^0.95, 300 + 1000^0.7, 300 + 1200^1.1, truncated.
    EXPECT_EQ(1007, sensor.params().donThreshold);
    EXPECT_EQ(425, sensor.params().doffThreshold);
    EXPECT_EQ(2738, sensor.params().donMaxThreshold);
    const std::string params = test::readFile(test::underRoot("/data/system/gaze/gaze_params.txt"));
    EXPECT_NE(std::string::npos, params.find("DON_THRESH = 1007\n"));
    EXPECT_NE(std::string::npos, params.find("DON_MAX_THRESH = 2738\n"));
    EXPECT_EQ("minValue: 300.000000\nmaxValue: 1500.000000\nminCenter: 300.000000\nmaxCenter: 1300.000000\n",
              std::string(calibrator->dump().string()));
    EXPECT_EQ(0u, calibrator->getNumSamples());  // used up on success

    // Reloading applies the file to a hub that lost it; clearing restores defaults.
    test::FakeProximitySensor freshHub;
    android::sp<DonDoffCalibrator> reloader = new DonDoffCalibrator(&freshHub);
    ASSERT_TRUE(reloader->loadCalibration());
    EXPECT_EQ(425, freshHub.params().doffThreshold);
    ASSERT_TRUE(reloader->clearCalibration());
    EXPECT_EQ(450, freshHub.params().donThreshold);
    EXPECT_EQ(2000, freshHub.params().donMaxThreshold);
}

TEST(DonDoffCalibrator, ClampsCountsAndClosesAfterOneMinute) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    android::sp<DonDoffCalibrator> calibrator = new DonDoffCalibrator(&sensor);
    calibrator->onProxData(ProxData(500, 0));
    EXPECT_TRUE(test::LogCapture::contains("Not in a calibration session. Why do you send me data?", ANDROID_LOG_WARN,
                                           "GazeService::DonDoffCalibrator"));
    ASSERT_TRUE(calibrator->beginCalibrationInterval());
    EXPECT_FALSE(calibrator->beginCalibrationInterval());
    deliver(&sensor, {4000, 4001, 100, 250});
    EXPECT_EQ(2u, calibrator->getOutOfRangeCount());
    EXPECT_TRUE(test::LogCapture::contains("Out of range value!  Expected: 250 <= 4001 <= 4000.  Adding clamped value: 4000"));
    EXPECT_TRUE(test::LogCapture::contains("Adding clamped value: 250"));

    deliver(&sensor, repeat(300, 27));  // 31 in all
    EXPECT_FALSE(calibrator->isCalibrationComplete());
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());
    EXPECT_TRUE(test::LogCapture::contains("Only got 31 calibration samples but need at least 32.  Failing!"));
    EXPECT_EQ(31u, calibrator->getNumSamples());  // kept after a failure
    deliver(&sensor, {300});
    EXPECT_TRUE(calibrator->isCalibrationComplete());

    deliver(&sensor, repeat(300, 1920 - 32));
    EXPECT_TRUE(calibrator->isCalibrating());
    deliver(&sensor, {300});  // the 1921st
    EXPECT_FALSE(calibrator->isCalibrating());
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_TRUE(test::LogCapture::contains("received too many calibration samples and is closing"));
}

TEST(DonDoffCalibrator, NeedsSeparatedLevelsAndAnIdleHubDetector) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    android::sp<DonDoffCalibrator> calibrator = new DonDoffCalibrator(&sensor);
    calibrator->beginCalibrationInterval();
    deliver(&sensor, repeat(300, 22));
    deliver(&sensor, {399, 400, 401, 400, 399, 400, 401, 400, 399, 400});  // centre 399.9
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());
    EXPECT_TRUE(test::LogCapture::contains("Error: Range 99.899994 was less than the minimal cluster separation"));

    deliver(&sensor, repeat(500, 10));  // the middle level joins the lower one: far enough apart now
    NoDonDoff listener;
    sensor.addDonDoffListener(&listener, false);
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());
    EXPECT_TRUE(test::LogCapture::contains("Cannot change the dondoff thresholds when the detector is enabled!"));
    EXPECT_EQ(450, sensor.params().donThreshold);
    sensor.removeDonDoffListener(&listener);
    EXPECT_TRUE(calibrator->updateAndSaveCalibration());

    calibrator->beginCalibrationInterval();
    deliver(&sensor, repeat(300, 40));
    deliver(&sensor, repeat(2000, 4));  // a cluster of 4 is too small
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());
    EXPECT_TRUE(test::LogCapture::contains("Cluster sizes are: 40 and 4.  Minimum expected size is: 5"));

    // Levels exactly the minimum apart are far enough.
    calibrator->endCalibrationInterval();
    ASSERT_TRUE(calibrator->beginCalibrationInterval());
    deliver(&sensor, repeat(300, 22));
    deliver(&sensor, repeat(400, 10));
    EXPECT_TRUE(calibrator->updateAndSaveCalibration());
}

TEST(DonDoffCalibrator, AFailedSaveKeepsTheFileAndTheHubThresholds) {
    const std::string dir = test::underRoot("/data/system/gaze");
    const std::string file = test::underRoot("/data/system/gaze/gaze_params.txt");
    const struct {
        const char* name;
        std::function<bool(DonDoffCalibrator*)> save;
    } kFaults[] = {
            {"full disk",
             [](DonDoffCalibrator* c) {
                 test::ScopedFullDisk full(8);
                 return c->updateAndSaveCalibration();
             }},
            {"unwritable directory",
             [&](DonDoffCalibrator* c) {
                 test::ScopedUnwritableDir locked(dir);
                 return c->updateAndSaveCalibration();
             }},
    };
    test::ScopedLogCapture capture;
    for (const auto& fault : kFaults) {
        SCOPED_TRACE(fault.name);
        test::FakeProximitySensor sensor;
        android::sp<DonDoffCalibrator> calibrator = new DonDoffCalibrator(&sensor);
        ASSERT_TRUE(calibrator->beginCalibrationInterval());
        deliver(&sensor, repeat(300, 20));
        deliver(&sensor, repeat(1300, 20));
        ASSERT_TRUE(calibrator->updateAndSaveCalibration());
        const std::string before = test::readFile(file);
        const MCUParams hubBefore = sensor.params();
        const size_t files = test::listDir(dir).size();

        deliver(&sensor, repeat(400, 20));  // the wearer's levels moved
        deliver(&sensor, repeat(2300, 20));
        EXPECT_FALSE(fault.save(calibrator.get()));
        EXPECT_TRUE(test::LogCapture::contains("Failed to save new parameter file:"));
        EXPECT_FALSE(test::LogCapture::contains("Can not restore"));
        EXPECT_EQ(before, test::readFile(file));
        EXPECT_EQ(hubBefore.toString(), sensor.params().toString());
        EXPECT_EQ(files, test::listDir(dir).size());
        EXPECT_EQ(40u, calibrator->getNumSamples());  // kept for another try
    }
}

TEST(DonDoffCalibrator, RefusesParameterFilesThatMakeNoSenseAndKeepsTheHub) {
    const char* const kBadFiles[] = {
            "VERSION = 3.0\nDON_THRESH = -1\n",
            "VERSION = 3.0\nDON_THRESH = 300\nDOFF_THRESH = 400\n",
            "VERSION = 3.0\nGAIN = 1\nDON_MAX_THRESH = 67536\n",  // would wrap to a plausible 2000
    };
    test::ScopedLogCapture capture;
    for (const char* text : kBadFiles) {
        SCOPED_TRACE(text);
        test::FakeProximitySensor sensor;
        MCUParams set;
        set.donThreshold = 1007;
        sensor.setMCUParams(set);
        ASSERT_TRUE(test::writeFile(test::underRoot("/data/system/gaze/gaze_params.txt"), text));
        android::sp<DonDoffCalibrator> calibrator = new DonDoffCalibrator(&sensor);
        test::LogCapture::clear();
        EXPECT_FALSE(calibrator->loadCalibration());
        EXPECT_EQ(1u, test::LogCapture::count("Refused ", ANDROID_LOG_ERROR));
        EXPECT_EQ(1007, sensor.params().donThreshold);
    }
}

}  // namespace
}  // namespace velto
