#include "calibration/LookAtScreenCalibrator.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/harness/FakeProximitySensor.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/SaveFaults.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const char kParams[] = "/data/system/gaze/laser_params.txt";

android::Vector<float> vectorOf(const std::vector<float>& values) {
    android::Vector<float> out;
    for (float v : values) out.push(v);
    return out;
}

TEST(LookAtScreenCalibrator, RemovesTheExtremeFractionAtBothEnds) {
    std::vector<float> values;
    for (int i = 0; i < 100; ++i) values.push_back(static_cast<float>((i * 37) % 100));  // 0..99 shuffled
    android::Vector<float> v = vectorOf(values);
    LookAtScreenCalibrator::removeOutliers(&v, 0.1f);
    ASSERT_EQ(80u, v.size());
    EXPECT_EQ(10.0f, v[0]);
    EXPECT_EQ(89.0f, v[79]);

    android::Vector<float> nine = vectorOf({5, 3, 9, 1, 7, 2, 8, 4, 6});
    LookAtScreenCalibrator::removeOutliers(&nine, 0.1f);  // k = 0: all kept, sorted
    ASSERT_EQ(9u, nine.size());
    EXPECT_EQ(1.0f, nine[0]);
    EXPECT_EQ(9.0f, nine[8]);

    android::Vector<float> ten = vectorOf({5, 3, 9, 1, 7, 2, 8, 4, 6, 10});
    LookAtScreenCalibrator::removeOutliers(&ten, 0.1f);  // k = 1
    ASSERT_EQ(8u, ten.size());
    EXPECT_EQ(2.0f, ten[0]);
    EXPECT_EQ(9.0f, ten[7]);

    android::Vector<float> five = vectorOf({5, 3, 9, 1, 7});
    LookAtScreenCalibrator::removeOutliers(&five, 0.4f);  // k = 2: the middle one stays
    ASSERT_EQ(1u, five.size());
    EXPECT_EQ(5.0f, five[0]);

    android::Vector<float> two = vectorOf({5, 3});
    LookAtScreenCalibrator::removeOutliers(&two, 0.5f);  // nothing would be left
    EXPECT_TRUE(two.isEmpty());
}

TEST(LookAtScreenCalibrator, WritesTheScaledCentreDistance) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    android::sp<LookAtScreenCalibrator> calibrator = new LookAtScreenCalibrator(&sensor);
    ASSERT_TRUE(calibrator->beginCalibrationInterval());
    for (int i = 0; i < 20; ++i) sensor.deliverSample(100, i);
    for (int i = 0; i < 20; ++i) sensor.deliverSample(130 | 0x4000, 20 + i);
    ASSERT_TRUE(calibrator->endCalibrationInterval());
    ASSERT_TRUE(calibrator->updateAndSaveCalibration());
    EXPECT_EQ("24.000000\n", test::readFile(test::underRoot(kParams)));  // 0.8 x 30
    EXPECT_EQ(0u, calibrator->getNumValues());
    EXPECT_NE(std::string::npos, std::string(calibrator->dump().string()).find("Dumping 40 prox data packets...\n39 130 1 0\n"));

    // Centres 9 apart are refused and the file stays as it was.
    calibrator->beginCalibrationInterval();
    for (int i = 0; i < 20; ++i) sensor.deliverSample(100, i);
    for (int i = 0; i < 20; ++i) sensor.deliverSample(109, i);
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());
    EXPECT_TRUE(test::LogCapture::contains("Error: Range 9.000000 was less than the minimal cluster separation for "
                                           "success: 10.000000",
                                           ANDROID_LOG_ERROR, "GazeService::LookAtScreenCalibrator"));
    EXPECT_EQ("24.000000\n", test::readFile(test::underRoot(kParams)));
    // Exactly the minimum apart is enough.
    calibrator->endCalibrationInterval();
    ASSERT_TRUE(calibrator->beginCalibrationInterval());
    for (int i = 0; i < 20; ++i) sensor.deliverSample(100, i);
    for (int i = 0; i < 20; ++i) sensor.deliverSample(110, i);
    EXPECT_TRUE(calibrator->updateAndSaveCalibration());
    EXPECT_EQ("8.000000\n", test::readFile(test::underRoot(kParams)));
}

TEST(LookAtScreenCalibrator, NeedsEnoughSamplesAndClosesAfterOneMinute) {
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    android::sp<LookAtScreenCalibrator> calibrator = new LookAtScreenCalibrator(&sensor);
    EXPECT_FALSE(calibrator->endCalibrationInterval());
    calibrator->beginCalibrationInterval();
    for (int i = 0; i < 35; ++i) sensor.deliverSample(i < 17 ? 100 : 200, i);
    EXPECT_FALSE(calibrator->updateAndSaveCalibration());  // 3 trimmed at each end
    EXPECT_TRUE(test::LogCapture::contains("Only got 29 calibration samples but need at least 32.  Failing!"));
    EXPECT_EQ(29u, calibrator->getNumValues());

    for (int i = 29; i < 1920; ++i) sensor.deliverSample(100, i);
    EXPECT_TRUE(calibrator->isCalibrating());
    sensor.deliverSample(100, 1920);  // the 1921st
    EXPECT_FALSE(calibrator->isCalibrating());
    EXPECT_EQ(0u, sensor.numDataListeners());

    android::sp<LookAtScreenCalibrator> blind = new LookAtScreenCalibrator(nullptr);
    EXPECT_FALSE(blind->beginCalibrationInterval());
    EXPECT_TRUE(test::LogCapture::contains("mProxSensor must not be NULL in beginCalibrationInterval."));
}

TEST(LookAtScreenCalibrator, AFailedWriteKeepsTheEarlierThresholdFile) {
    const std::string dir = test::underRoot("/data/system/gaze");
    test::ScopedLogCapture capture;
    test::FakeProximitySensor sensor;
    android::sp<LookAtScreenCalibrator> calibrator = new LookAtScreenCalibrator(&sensor);
    for (int attempt = 0; attempt < 2; ++attempt) {
        SCOPED_TRACE(attempt == 0 ? "full disk" : "unwritable directory");
        ASSERT_TRUE(test::writeFile(test::underRoot(kParams), "24.000000\n"));
        const size_t files = test::listDir(dir).size();
        ASSERT_TRUE(calibrator->beginCalibrationInterval());
        for (int i = 0; i < 20; ++i) sensor.deliverSample(100, i);
        for (int i = 0; i < 20; ++i) sensor.deliverSample(150, 20 + i);
        ASSERT_TRUE(calibrator->endCalibrationInterval());
        bool saved;
        if (attempt == 0) {
            test::ScopedFullDisk full(4);
            saved = calibrator->updateAndSaveCalibration();
        } else {
            test::ScopedUnwritableDir locked(dir);
            saved = calibrator->updateAndSaveCalibration();
        }
        EXPECT_FALSE(saved);
        EXPECT_TRUE(test::LogCapture::contains("Error writing to look-at-screen parameter file:"));
        EXPECT_EQ("24.000000\n", test::readFile(test::underRoot(kParams)));
        EXPECT_EQ(files, test::listDir(dir).size());
    }
}

}  // namespace
}  // namespace velto
