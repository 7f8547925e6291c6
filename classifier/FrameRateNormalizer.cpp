#include "classifier/FrameRateNormalizer.h"

#include <log/log.h>

namespace velto {

namespace {
const char kTag[] = "GazeDetector";
}

FrameRateNormalizer::FrameRateNormalizer(float fps) : fps_(fps) { reset(); }

void FrameRateNormalizer::reset() {
    prev_real_value_ = 0.0f;
    prev_real_frame_timestamp_ms_ = -1.0;
    prev_fake_timestamp_ms_ = -1.0;
}

int FrameRateNormalizer::updateSignal(double timestamp_ms, float value, float* fake_values, int max_num_fake_values) {
    if (fake_values == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "fake values can not be NULL.");
        return 0;
    }
    if (fps_ <= 0.0f) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fps must be positive.");
        return 0;
    }
    if (prev_real_frame_timestamp_ms_ < 0.0) {
        // The first sample anchors the grid.
        prev_real_frame_timestamp_ms_ = timestamp_ms;
        prev_fake_timestamp_ms_ = timestamp_ms;
        prev_real_value_ = value;
        if (max_num_fake_values < 1) return 0;
        fake_values[0] = value;
        return 1;
    }
    const double interval = timestamp_ms - prev_real_frame_timestamp_ms_;
    if (interval < 0.0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Frame interval was negative!  Why is time going backwards? interval: %f  "
                            "prev_timestamp_ms=%f  this_timestamp=%f\n",
                            interval, prev_real_frame_timestamp_ms_, timestamp_ms);
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Resetting the frame normalizer and continuing...");
        reset();
        return 0;
    }
    if (interval == 0.0) return 0;

    const double period = 1000.0 / fps_;
    double t = prev_fake_timestamp_ms_ + period;
    int count = 0;
    while (t <= timestamp_ms && count < max_num_fake_values) {
        if (t < prev_real_frame_timestamp_ms_) {
            // The grid fell behind (a gap longer than the output allowed).
            __android_log_print(ANDROID_LOG_ERROR, kTag, "fake_timestamp_ms (%f) must >= prev_real_frame_timestamp_ms_ (%f).",
                                t, prev_real_frame_timestamp_ms_);
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Resetting the frame normalizer...");
            reset();
            return 0;
        }
        const float w = static_cast<float>((timestamp_ms - t) / interval);
        fake_values[count] = (1.0f - w) * value + w * prev_real_value_;
        ++count;
        prev_fake_timestamp_ms_ = t;
        t = t + period;
    }
    prev_real_frame_timestamp_ms_ = timestamp_ms;
    prev_real_value_ = value;
    return count;
}

}  // namespace velto
