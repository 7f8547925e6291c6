#include "classifier/SeqSample.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

TEST(SeqSample, IntegralSumsStayExactAfterTheWindowSlides) {
    // Fractional values make every re-basing pass round; element 0 must still
    // be exactly 0 and every block sum must match the window's own values.
    const int L = 5;
    SeqSample sample(L);
    std::vector<float> all;
    for (int i = 0; i < 23; ++i) {
        const float v = 1000.0f + 0.37f * static_cast<float>(i * i) - 3.1f * static_cast<float>(i);
        all.push_back(v);
        sample.addNewValue(v);
        const int size = std::min(i + 1, L);
        ASSERT_EQ(0.0f, sample.integralValueAt(0)) << "after value " << i;
        ASSERT_EQ(0.0f, sample.integralSobelValueAt(0)) << "after value " << i;
        double sum = 0.0;
        for (int k = 0; k < size; ++k) {
            const float expected = all[all.size() - size + k];
            ASSERT_EQ(expected, sample.valueAt(k));
            sum += expected;
            EXPECT_NEAR(sum, sample.integralValueAt(k + 1), 1e-2) << "prefix " << k + 1 << " after value " << i;
        }
        EXPECT_EQ(0.0f, sample.integralValueAt(size + 1));  // beyond the prefix sums
    }
    EXPECT_TRUE(sample.full());
    EXPECT_EQ(all[18], sample.minValue());
    EXPECT_EQ(all[22], sample.maxValue());
    EXPECT_EQ(all[22] - all[18], sample.magnitude());
}

TEST(SeqSample, SobelIsNewestMinusTwoOlderAndSlidesWithTheWindow) {
    test::ScopedLogCapture capture;
    SeqSample sample(5);
    for (float v : {1.0f, 4.0f, 9.0f}) sample.addNewValue(v);
    // 0, 0, then 9 - 1.
    EXPECT_EQ(0.0f, sample.integralSobelValueAt(2));
    EXPECT_EQ(8.0f, sample.integralSobelValueAt(3));
    for (float v : {16.0f, 25.0f, 36.0f}) sample.addNewValue(v);
    // Sobel window 0, 8, 12, 16, 20: the first value's 0 has dropped out.
    EXPECT_EQ(0.0f, sample.integralSobelValueAt(1));
    EXPECT_EQ(8.0f, sample.integralSobelValueAt(2));
    EXPECT_EQ(56.0f, sample.integralSobelValueAt(5));
    EXPECT_EQ(4.0f, sample.integralValueAt(1));
    EXPECT_EQ(4.0f + 9 + 16 + 25 + 36, sample.integralValueAt(5));
    EXPECT_EQ(32.0f, sample.magnitude());

    SeqSample one(1);  // two prefix sums, Sobel always 0
    for (float v : {3.0f, 7.0f, 2.0f}) one.addNewValue(v);
    EXPECT_EQ(2.0f, one.integralValueAt(1));
    EXPECT_EQ(0.0f, one.integralValueAt(2));
    EXPECT_EQ(0.0f, one.integralSobelValueAt(1));
    EXPECT_EQ(0.0f, one.magnitude());
    EXPECT_EQ(0u, test::LogCapture::count("", ANDROID_LOG_ERROR));  // the sums stayed consistent
}

TEST(SeqSample, MagnitudeBoundsEmptinessAndDebugText) {
    test::ScopedLogCapture capture;
    SeqSample sample(5);
    EXPECT_TRUE(sample.empty());
    EXPECT_FALSE(sample.full());
    EXPECT_EQ(5, sample.length());
    EXPECT_EQ(android::String8("capacity=5, size=0, minValue=0.000000, maxValue=0.000000, values=[]"),
              sample.debugString());

    for (int i = 0; i < 5; ++i) sample.addNewValue(42.0f);
    EXPECT_TRUE(sample.full());
    EXPECT_EQ(0.0f, sample.magnitude());
    EXPECT_EQ(0.0f, sample.inverseMagnitude());  // no division by zero
    sample.addNewValue(50.0f);
    EXPECT_EQ(8.0f, sample.magnitude());
    EXPECT_EQ(0.125f, sample.inverseMagnitude());
    EXPECT_EQ(0.0f, sample.valueAt(-1));
    EXPECT_EQ(0.0f, sample.valueAt(5));
    EXPECT_EQ(android::String8("capacity=5, size=5, minValue=42.000000, maxValue=50.000000, "
                               "values=[42.00 42.00 42.00 42.00 50.00 ]"),
              sample.debugString());

    sample.clear();
    EXPECT_TRUE(sample.empty());
    EXPECT_EQ(0.0f, sample.magnitude());
    EXPECT_EQ(5, sample.length());

    sample.addNewValues(nullptr, 3);
    EXPECT_TRUE(test::LogCapture::contains("new_values must not be NULL.", ANDROID_LOG_ERROR, "GazeDetector"));

    // A non-positive length is reported and gives a window that never fills.
    SeqSample broken(0);
    EXPECT_TRUE(test::LogCapture::contains("Sample length must be positive: 0", ANDROID_LOG_ERROR));
    broken.addNewValue(1.0f);
    EXPECT_FALSE(broken.full());
    EXPECT_TRUE(broken.empty());
    SeqSample huge(SeqSample::kMaxLength + 1);  // a corrupt detector file must not cost gigabytes
    EXPECT_TRUE(test::LogCapture::contains("Sample length must not exceed 65536: 65537"));
    huge.addNewValue(1.0f);
    EXPECT_TRUE(huge.empty());
}

}  // namespace
}  // namespace velto
