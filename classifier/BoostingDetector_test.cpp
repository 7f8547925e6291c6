#include "classifier/BoostingDetector.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

// Positive while the newest value is above 50 (the second block lies far
// outside the window and reads 0; no magnitude normalisation).
std::string newestAbove50(int length) {
    const std::string path = "/system/etc/gaze/test/newest_above_50_" + std::to_string(length) + ".txt";
    test::writeFile(test::underRoot(path),
                    "1 " + std::to_string(length) + " 0.0 0\n1 0.0\n0 " + std::to_string(length - 1) +
                            " 1 100 0 1 1.0 50\n");
    return path;
}

DetectorOptions optionsAt(float fps) {
    DetectorOptions options;
    options.frame_rate = fps;
    return options;
}

std::vector<bool> feed(BoostingDetector* d, const std::vector<float>& values,
                       std::vector<BoostingDetector::GestureInfo>* infos = nullptr) {
    std::vector<bool> out;
    for (float v : values) {
        BoostingDetector::GestureInfo info;
        out.push_back(d->updateSignalAndDetectGesture(v, &info));
        if (infos != nullptr) infos->push_back(info);
    }
    return out;
}

TEST(BoostingDetector, ReportsOncePerClusterOfPositiveWindows) {
    BoostingDetector d(optionsAt(32.0f));
    ASSERT_TRUE(d.loadDetectorFromFile(newestAbove50(4).c_str()));
    std::vector<BoostingDetector::GestureInfo> infos;
    // One positive is not enough; the second among the last 8 reports.
    EXPECT_EQ((std::vector<bool>{false, false, false, false, false, false, true}),
              feed(&d, {0, 0, 0, 0, 100, 0, 100}, &infos));
    EXPECT_EQ(100.0f, infos.back().magnitude);
    EXPECT_EQ(2 * 1000.0f / 32.0f, infos.back().duration);  // rise at 1, fall at 3 in [0 100 0 100]
    // The run goes on: suppressed until a negative window, then a new cluster.
    EXPECT_EQ((std::vector<bool>{false, false, false, false, true}), feed(&d, {100, 100, 0, 100, 100}));

    // A lone positive that has left the 8-window history does not count.
    d.reset();
    EXPECT_EQ((std::vector<bool>(13, false)), feed(&d, {0, 0, 0, 0, 100, 0, 0, 0, 0, 0, 0, 0, 100}));
    EXPECT_TRUE(feed(&d, {100})[0]);
}

TEST(BoostingDetector, DurationIsTheWidestCompleteRunAtTwoLevels) {
    BoostingDetector d(optionsAt(50.0f));
    ASSERT_TRUE(d.loadDetectorFromFile(newestAbove50(7).c_str()));
    test::ScopedLogCapture capture;
    EXPECT_EQ(0.0f, d.estimateGestureDurationMsByThreshold(5.0f));
    EXPECT_TRUE(test::LogCapture::contains("mSample must not be NULL.", ANDROID_LOG_ERROR,
                                           "GazeService:BoostingDetector"));
    feed(&d, {0, 0, 10, 10, 10, 0});
    EXPECT_EQ(0.0f, d.estimateGestureDurationMsByThreshold(5.0f));
    EXPECT_TRUE(test::LogCapture::contains("mSample must be full."));
    feed(&d, {0});
    // Three samples above both levels measure four frames: 80 ms at 50 fps.
    EXPECT_EQ(80.0f, d.estimateGestureDurationMs());
    feed(&d, {100, 100, 110, 110, 110, 100, 100});  // the levels lie between the window's own extremes
    EXPECT_EQ(80.0f, d.estimateGestureDurationMs());
    feed(&d, {10, 0, 0, 0, 0, 10, 10});  // both runs touch an end of the window
    EXPECT_EQ(0.0f, d.estimateGestureDurationMs());
    feed(&d, {0, 10, 0, 10, 10, 0, 0});  // the two-sample run (3 frames) wins over the single one
    EXPECT_EQ(60.0f, d.estimateGestureDurationMsByThreshold(5.0f));
    feed(&d, {0, 5, 10, 10, 0, 0, 0});  // a value at the level lies above it
    EXPECT_EQ(80.0f, d.estimateGestureDurationMsByThreshold(5.0f));
}

TEST(BoostingDetector, ResamplesResetsOnBigGapsAndAveragesDetections) {
    test::ScopedLogCapture capture;
    BoostingDetector d(optionsAt(50.0f));  // 20 ms period; gaps over 80 ms reset
    ASSERT_TRUE(d.loadDetectorFromFile(newestAbove50(4).c_str()));
    BoostingDetector::GestureInfo info;
    EXPECT_FALSE(d.normalizeFrameRateAndDetectGesture(1000.0, 5.0f, &info));  // start-up takes the reset path
    EXPECT_TRUE(test::LogCapture::contains("Big gap in input signal: 1000.000000 ms. Resetting.", ANDROID_LOG_WARN));
    d.normalizeFrameRateAndDetectGesture(1020.0, 6.0f, &info);
    EXPECT_EQ(6.0f, d.getSample()->valueAt(1));
    EXPECT_EQ(0.0f, d.getSample()->valueAt(2));  // one value per 20 ms step
    d.normalizeFrameRateAndDetectGesture(1080.0, 30.0f, &info);
    EXPECT_TRUE(test::LogCapture::contains(
            "3 fake values are generated. Your sampling rate has large variation.", ANDROID_LOG_WARN));
    // [6 14 22 30]: 1040 and 1060 ms interpolated between 6 and 30.
    EXPECT_TRUE(d.getSample()->full());
    EXPECT_FLOAT_EQ(14.0f, d.getSample()->valueAt(1));
    EXPECT_FLOAT_EQ(22.0f, d.getSample()->valueAt(2));
    EXPECT_FLOAT_EQ(30.0f, d.getSample()->valueAt(3));

    d.normalizeFrameRateAndDetectGesture(1160.0, 30.0f, &info);  // exactly 80 ms: still interpolated
    EXPECT_FALSE(test::LogCapture::contains("Big gap in input signal: 80.000000 ms."));
    d.normalizeFrameRateAndDetectGesture(1241.0, 7.0f, &info);  // 81 ms
    EXPECT_TRUE(test::LogCapture::contains("Big gap in input signal: 81.000000 ms. Resetting."));
    EXPECT_FALSE(d.getSample()->full());
    EXPECT_EQ(7.0f, d.getSample()->valueAt(0));
    EXPECT_EQ(0.0f, d.getSample()->valueAt(1));

    double t = 1241.0;
    bool detected = false;
    for (float v : {0.0f, 0.0f, 0.0f, 100.0f, 0.0f, 100.0f}) {
        t += 20.0;
        detected = d.normalizeFrameRateAndDetectGesture(t, v, &info);
    }
    ASSERT_TRUE(detected);
    EXPECT_EQ(100.0f, info.magnitude);
    EXPECT_EQ(40.0f, info.duration);
    EXPECT_TRUE(test::LogCapture::contains("Positive detection at 7 frame since last reset.", ANDROID_LOG_INFO));
}

TEST(BoostingDetector, RefusesWorkWithoutAUsableCascade) {
    test::ScopedLogCapture capture;
    BoostingDetector d(optionsAt(32.0f));
    BoostingDetector::GestureInfo info;
    EXPECT_FALSE(d.updateSignalAndDetectGesture(1.0f, &info));
    EXPECT_TRUE(test::LogCapture::contains("mClassifier is NULL. Have you called loadDetectorFromFile?",
                                           ANDROID_LOG_ERROR));
    EXPECT_FALSE(d.setMagnitudeRange(Interval<float>(1.0f, 2.0f)));
    EXPECT_TRUE(test::LogCapture::contains("Classifier must be loaded before setting magnitude range."));
    EXPECT_EQ(android::String8("mClassifier: NULL"), d.getClassifierDebugString());

    ASSERT_TRUE(d.loadDetectorFromFile(newestAbove50(4).c_str()));
    EXPECT_EQ(20000.0f, d.getClassifier()->posSampleMagnitudeRange().max);  // the options' range reaches the cascade
    EXPECT_FALSE(d.normalizeFrameRateAndDetectGesture(0.0, 1.0f, nullptr));
    EXPECT_TRUE(test::LogCapture::contains("info must not be NULL."));
    feed(&d, {1, 2, 3, 100});
    EXPECT_NE(std::string::npos,
              std::string(d.getDebugString().string()).find("mClassificationHistory: [1 0 0 0 ]"));

    // A cascade of another length does not fit the window already made.
    ASSERT_TRUE(d.loadDetectorFromFile(newestAbove50(7).c_str()));
    EXPECT_FALSE(d.updateSignalAndDetectGesture(1.0f, &info));
    EXPECT_TRUE(test::LogCapture::contains("Sample has wrong length: 4."));
    EXPECT_FALSE(d.loadDetectorFromFile("/system/etc/gaze/test/absent.txt"));
    EXPECT_EQ(nullptr, d.getClassifier());
}

}  // namespace
}  // namespace velto
