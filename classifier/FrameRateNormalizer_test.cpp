#include "classifier/FrameRateNormalizer.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

TEST(FrameRateNormalizer, InterpolatesOnTheGridAnchoredAtTheFirstSample) {
    FrameRateNormalizer n(100.0f);  // 10 ms period
    float out[5];
    ASSERT_EQ(1, n.updateSignal(0.0, 0.0f, out, 5));
    EXPECT_EQ(0.0f, out[0]);
    ASSERT_EQ(2, n.updateSignal(25.0, 10.0f, out, 5));
    EXPECT_FLOAT_EQ(4.0f, out[0]);  // at 10 ms
    EXPECT_FLOAT_EQ(8.0f, out[1]);  // at 20 ms

    // A repeated time stamp is ignored, value included: the next grid point
    // (30 ms) interpolates from the sample at 25 ms with value 10.
    EXPECT_EQ(0, n.updateSignal(25.0, 1000.0f, out, 5));
    ASSERT_EQ(1, n.updateSignal(35.0, 20.0f, out, 5));
    EXPECT_FLOAT_EQ(15.0f, out[0]);
}

TEST(FrameRateNormalizer, ResetsWhenTimeGoesBackOrTheGridFallsBehind) {
    test::ScopedLogCapture capture;
    FrameRateNormalizer n(100.0f);
    float out[5];
    n.updateSignal(100.0, 1.0f, out, 5);
    EXPECT_EQ(0, n.updateSignal(90.0, 2.0f, out, 5));
    EXPECT_TRUE(test::LogCapture::contains("Frame interval was negative!  Why is time going backwards? interval: "
                                           "-10.000000  prev_timestamp_ms=100.000000  this_timestamp=90.000000\n",
                                           ANDROID_LOG_ERROR, "GazeDetector"));
    ASSERT_EQ(1, n.updateSignal(80.0, 3.0f, out, 5));  // a new grid at 80 ms
    EXPECT_EQ(3.0f, out[0]);

    // A gap of 7 periods with room for 5: the grid stays behind and the next
    // sample resets instead of extrapolating; the one after starts afresh.
    ASSERT_EQ(5, n.updateSignal(150.0, 10.0f, out, 5));
    EXPECT_EQ(0, n.updateSignal(160.0, 11.0f, out, 5));
    EXPECT_TRUE(test::LogCapture::contains("fake_timestamp_ms (140.000000) must >= prev_real_frame_timestamp_ms_ "
                                           "(150.000000)."));
    ASSERT_EQ(1, n.updateSignal(170.0, 12.0f, out, 5));
    EXPECT_EQ(12.0f, out[0]);

    FrameRateNormalizer stopped(0.0f);
    EXPECT_EQ(0, stopped.updateSignal(0.0, 1.0f, out, 5));
    EXPECT_TRUE(test::LogCapture::contains("Fps must be positive."));
}

}  // namespace
}  // namespace velto
