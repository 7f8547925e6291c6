#include "detectors/EyeGestureBoostingDetector.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>

#include "detectors/ScriptedBoostingDetector_test.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const std::string kDir = "/system/etc/gaze/settest/";

std::string writeSetFiles(const std::string& listName, const std::string& list) {
    const std::string cascade = "1 4 0.0 0\n1 0.0\n0 3 1 100 0 1 1.0 50\n";
    test::writeFile(test::underRoot(kDir + "a.txt"), cascade);
    test::writeFile(test::underRoot(kDir + "b.txt"), cascade);
    test::writeFile(test::underRoot(kDir + listName), list);
    return kDir + listName;
}

TEST(EyeGestureBoostingDetector, LoadsEveryDetectorOfTheListOrNone) {
    test::ScopedLogCapture capture;
    EyeGestureBoostingDetector set(GazeServiceInterface::DOUBLE_BLINK);
    EXPECT_FALSE(set.setMagnitudeRange(Interval<float>(40.0f, 300.0f)));
    EXPECT_TRUE(test::LogCapture::contains("Detectors must be loaded before setting magnitude range."));
    EXPECT_EQ(40.0f, set.getMagnitudeRange().min);  // kept for later all the same

    ASSERT_TRUE(set.loadDetectorFromFile(writeSetFiles("set.txt", "a.txt\nb.txt").c_str()));
    ASSERT_EQ(2, set.getNumDetectors());
    EXPECT_EQ(32.0f, set.getDetector(1)->getOptions().frame_rate);

    // The detectors' cascades accept a widened range, within [5, 1000].
    ASSERT_TRUE(set.setMagnitudeRange(Interval<float>(40.0f, 300.0f)));
    EXPECT_EQ(10.0f, set.getDetector(0)->getClassifier()->posSampleMagnitudeRange().min);
    EXPECT_EQ(600.0f, set.getDetector(1)->getClassifier()->posSampleMagnitudeRange().max);
    ASSERT_TRUE(set.setMagnitudeRange(Interval<float>(10.0f, 800.0f)));
    EXPECT_EQ(5.0f, set.getDetector(0)->getClassifier()->posSampleMagnitudeRange().min);
    EXPECT_EQ(1000.0f, set.getDetector(0)->getClassifier()->posSampleMagnitudeRange().max);

    EXPECT_FALSE(set.loadDetectorFromFile(writeSetFiles("bad.txt", "a.txt\nmissing.txt\n").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("Can not load detector from file " + test::underRoot(kDir) +
                                           "missing.txt."));
    EXPECT_EQ(0, set.getNumDetectors());
    // An empty line names the directory itself.
    EXPECT_FALSE(set.loadDetectorFromFile(writeSetFiles("gap.txt", "a.txt\n\nb.txt\n").c_str()));
    EXPECT_EQ(0, set.getNumDetectors());
    EXPECT_FALSE(set.loadDetectorFromFile(writeSetFiles("empty.txt", "").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("No detector loaded from file"));
    EXPECT_FALSE(set.loadDetectorFromFile((kDir + "absent.txt").c_str()));
    EXPECT_TRUE(test::LogCapture::contains("Can not open file", ANDROID_LOG_ERROR,
                                           "GazeService:EyeGestureBoostingDetector"));
}

TEST(EyeGestureBoostingDetector, MergesAnswersAndKeepsTheMinimumInterval) {
    test::ScopedLogCapture capture;
    auto* first = new test::ScriptedBoostingDetector();
    auto* second = new test::ScriptedBoostingDetector();
    android::Vector<BoostingDetector*> detectors;
    detectors.push(first);
    detectors.push(second);
    EyeGestureBoostingDetector set(GazeServiceInterface::DOUBLE_BLINK, detectors);
    set.setMagnitudeRange(Interval<float>(40.0f, 300.0f));

    // Both fire on one sample: one gesture, judged by the larger magnitude.
    first->fireAt(0, 30.0f, 100.0f);
    second->fireAt(0, 120.0f, 100.0f);
    const float batch[] = {7.0f, 8.0f, 9.0f};
    EXPECT_EQ(GazeServiceInterface::DOUBLE_BLINK, set.update(0, batch, 3));
    EXPECT_EQ(7.0f, second->values[0]);  // only the first of a batch
    EXPECT_EQ(1, set.getNumPositive(0));
    EXPECT_EQ(1, set.getNumPositive(1));

    first->fireAt(1, 100.0f, 100.0f);  // 499 ms later: ignored, time not moved
    first->fireAt(2, 100.0f, 100.0f);  // 500 ms after the reported one
    first->fireAt(3, 301.0f, 100.0f);  // out of range
    EXPECT_EQ(-1, set.update(499000000LL, batch, 1));
    EXPECT_TRUE(test::LogCapture::contains(
            "Time since last detection is smaller than gesture min interval 500.000000 ms. Ignored."));
    EXPECT_EQ(GazeServiceInterface::DOUBLE_BLINK, set.update(500000000LL, batch, 1));
    EXPECT_EQ(-1, set.update(2000000000LL, batch, 1));
    EXPECT_TRUE(test::LogCapture::contains("Bad DOUBLE_BLINK magnitude 301.000000 out of range [40.00, 300.00]."));
    EXPECT_EQ(4u, second->times.size());  // fed whatever the other answered
    EXPECT_EQ(2000.0, second->times[3]);

    set.reset();
    EXPECT_EQ(0, set.getNumPositive(0));
    EXPECT_EQ(1, first->resets);
    EXPECT_EQ(-1, set.update(0, nullptr, 1));
    EXPECT_EQ(-1, set.update(0, batch, 0));
    EXPECT_TRUE(test::LogCapture::contains("numSamples must >= 1."));
    set.clearDetectors();
    EXPECT_EQ(-1, set.update(0, batch, 1));
    EXPECT_TRUE(test::LogCapture::contains("mDetectors must not be empty."));
}

}  // namespace
}  // namespace velto
