#include "detectors/CalibratedMultiDurationWinkDetector.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>

#include "detectors/ScriptedBoostingDetector_test.h"
#include "service/GazeServiceInterface.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const std::string kDir = "/system/etc/gaze/winktest/";

std::string writeList(const std::string& name, const std::string& list) {
    const std::string cascade = "1 4 0.0 0\n1 0.0\n0 3 1 100 0 1 1.0 50\n";
    test::writeFile(test::underRoot(kDir + "short.txt"), cascade);
    test::writeFile(test::underRoot(kDir + "long.txt"), cascade);
    test::writeFile(test::underRoot(kDir + name), list);
    return kDir + name;
}

long long ms(long long t) { return t * 1000000LL; }

TEST(CalibratedMultiDurationWinkDetector, LoadsPairsOfDurationRangeAndDetectorFile) {
    test::ScopedLogCapture capture;
    CalibratedMultiDurationWinkDetector d(nullptr);
    ASSERT_TRUE(d.loadDetectorFromFile(writeList("list.txt", "280 400\nshort.txt\n  350.5   600\n\n  long.txt").c_str()));
    ASSERT_EQ(2, d.getNumDetectors());
    EXPECT_EQ(350.5f, d.getDetectorDurationRangeMs(1).min);
    EXPECT_EQ(600.0f, d.getDetectorDurationRangeMs(1).max);
    EXPECT_EQ(1000.0f, d.getDetector(0)->getClassifier()->posSampleMagnitudeRange().max);
    EXPECT_EQ(5.0f, d.getDetector(1)->getClassifier()->posSampleMagnitudeRange().min);
    EXPECT_EQ(-1, d.getActiveDetectorIndex());  // chosen by calibration only
    EXPECT_TRUE(test::LogCapture::contains("Successfully load detector for duration [350.50, 600.00] ms from file"));

    EXPECT_FALSE(d.loadDetectorFromFile(writeList("missing.txt", "280 400\nshort.txt\n400 600\nnone.txt\n").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("Can not load detector from file " + test::underRoot(kDir) + "none.txt."));
    EXPECT_EQ(0, d.getNumDetectors());

    EXPECT_FALSE(d.loadDetectorFromFile(writeList("odd.txt", "280 400\nshort.txt\n400 600\n").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("Miss filename of detector.", ANDROID_LOG_ERROR,
                                           "GazeService:MultiDurWinkDetector"));
    EXPECT_EQ(1, d.getNumDetectors());  // what loaded before stays

    EXPECT_FALSE(d.loadDetectorFromFile(writeList("none.txt", "\n").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("No detector loaded from file"));
}

TEST(CalibratedMultiDurationWinkDetector, ListsWithBrokenOrNonsenseLinesAreRefusedWhole) {
    const struct {
        const char* list;
        const char* refusal;  // of the well-formedness check
    } kBadLists[] = {
            {"280 400\nshort.txt\n4OO 600\nlong.txt\n", "Refused line 3 = 4OO 600 in "},
            {"280 400\nshort.txt\n400 600 700\nlong.txt\n", "Refused line 3 = 400 600 700 in "},
            {"280 nan\nshort.txt\n", "Refused line 1 = [280, nan]"},
            {"600 400\nshort.txt\n", "Refused line 1 = [600, 400]"},
            {"-50 400\nshort.txt\n", "Refused line 1 = -50"},
            {"280 400\nshort.txt\n400 600\n", "Refused last range"},
            {"\n\n", "Refused detectors = 0"},
    };
    test::ScopedLogCapture capture;
    for (const auto& bad : kBadLists) {
        SCOPED_TRACE(bad.list);
        const std::string path = writeList("bad.txt", bad.list);
        test::LogCapture::clear();
        EXPECT_FALSE(CalibratedMultiDurationWinkDetector::isDetectorListWellFormed(path.c_str()));
        EXPECT_EQ(1u, test::LogCapture::count("Refused ", ANDROID_LOG_ERROR));
        EXPECT_TRUE(test::LogCapture::contains(bad.refusal));
    }
    EXPECT_TRUE(CalibratedMultiDurationWinkDetector::isDetectorListWellFormed(  // one duration is a range too
            writeList("good.txt", "280 280\nshort.txt\n  350.5   600\n\n  long.txt").c_str()));
    EXPECT_FALSE(CalibratedMultiDurationWinkDetector::isDetectorListWellFormed((kDir + "absent.txt").c_str()));
    EXPECT_FALSE(CalibratedMultiDurationWinkDetector(nullptr).loadDetectorFromFile((kDir + "absent.txt").c_str()));

    // The loader itself refuses a non-finite range whole, even after good pairs.
    CalibratedMultiDurationWinkDetector d(nullptr);
    EXPECT_FALSE(d.loadDetectorFromFile(writeList("nan.txt", "280 400\nshort.txt\ninf 600\nlong.txt\n").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("Non-finite duration range [inf, 600.00] in file"));
    EXPECT_EQ(0, d.getNumDetectors());
}

class WinkDetectorWithScript : public ::testing::Test {
protected:
    void SetUp() override {
        script = new test::ScriptedBoostingDetector();
        detector.addDetector(script, Interval<float>(280.0f, 800.0f));
        // Calibrated on magnitudes 400..450 (acceptable [325, 625]) and a
        // duration of 400 ms, detector 0 active.
        test::writeFile(test::underRoot("/data/system/gaze/wink_test.txt"), "400 450 400 400 0");
        ASSERT_TRUE(detector.loadHighPowerCalibration("/data/system/gaze/wink_test.txt"));
    }

    // Feeds one sample at `t` ms on which the script fires with the given info.
    int winkAt(long long t, float magnitude, float duration) {
        script->fireAt(script->calls, magnitude, duration);
        const float v = 500.0f;
        return detector.update(ms(t), &v, 1);
    }

    CalibratedMultiDurationWinkDetector detector{nullptr};
    test::ScriptedBoostingDetector* script = nullptr;
};

TEST_F(WinkDetectorWithScript, MinimumIntervalAndTheFixedDurationGate) {
    test::ScopedLogCapture capture;
    EXPECT_EQ(325.0f, detector.getAcceptableMagnitudeRange().min);
    EXPECT_EQ(625.0f, detector.getAcceptableMagnitudeRange().max);
    EXPECT_EQ(550.0f, detector.getAcceptableDurationRangeMs().max);

    // 700 ms lies outside the calibrated durations but inside the fixed gate.
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(10000, 500.0f, 700.0f));
    EXPECT_EQ(-1, winkAt(11599, 500.0f, 400.0f));
    EXPECT_TRUE(test::LogCapture::contains(
            "Time since last detection is smaller than single gesture min interval 1600.000000 ms. Ignored."));
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(11600, 500.0f, 400.0f));

    // Rejections do not restart the interval.
    EXPECT_EQ(-1, winkAt(13200, 500.0f, 279.9f));
    EXPECT_TRUE(test::LogCapture::contains("Bad detection. Duration 279.899994 ms is out of range [280.00, 800.00] ms"));
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(13201, 500.0f, 280.0f));
    EXPECT_EQ(-1, winkAt(14801, 500.0f, 800.1f));
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(14802, 500.0f, 800.0f));
    EXPECT_EQ(-1, winkAt(16402, 625.5f, 400.0f));
    EXPECT_TRUE(test::LogCapture::contains("Bad detection. Magnitude 625.500000 is out of range [325.00, 625.00]"));
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(16403, 625.0f, 400.0f));

    // After a reset the next wink passes at any time from -1 ms on.
    detector.reset();
    EXPECT_EQ(1, script->resets);
    EXPECT_EQ(GazeServiceInterface::WINK, winkAt(-1, 500.0f, 400.0f));
    EXPECT_EQ(-1, winkAt(-2, 500.0f, 400.0f));
}

TEST_F(WinkDetectorWithScript, WithoutAnActiveDetectorNothingIsDetected) {
    test::ScopedLogCapture capture;
    detector.clearCalibration();
    EXPECT_EQ(-1, winkAt(10000, 500.0f, 400.0f));
    EXPECT_TRUE(test::LogCapture::contains("Invalid detector index: -1.", ANDROID_LOG_ERROR));
    EXPECT_TRUE(test::LogCapture::contains("Can not get active detector."));
    EXPECT_EQ(0, script->calls);
    EXPECT_EQ(-1, detector.update(0, nullptr, 1));
    const float v = 1.0f;
    EXPECT_EQ(-1, detector.update(0, &v, 0));
    EXPECT_TRUE(test::LogCapture::contains("Number of samples must be larger than zero."));
}

}  // namespace
}  // namespace velto
