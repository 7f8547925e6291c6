#include "classifier/SeqSample.h"

#include <float.h>
#include <log/log.h>
#include <math.h>

namespace velto {

namespace {

const char kTag[] = "GazeDetector";

// A length outside 1 .. kMaxLength (a corrupt detector file) builds an
// unusable window of capacity 0 rather than one of gigabytes.
unsigned int capacityFor(int length, int extra) {
    return length > 0 && length <= SeqSample::kMaxLength ? static_cast<unsigned int>(length + extra) : 0u;
}

}  // namespace

SeqSample::SeqSample(int length)
    : values_(capacityFor(length, 0)),
      magnitude_(0.0f),
      inverse_magnitude_(0.0f),
      integral_values_(capacityFor(length, 1)),
      sobel_values_(capacityFor(length, 0)),
      integral_sobel_values_(capacityFor(length, 1)),
      min_value_(0.0f),
      max_value_(0.0f) {
    if (length <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Sample length must be positive: %d", length);
    } else if (length > kMaxLength) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Sample length must not exceed %d: %d", kMaxLength, length);
    }
}

void SeqSample::addNewValue(float value) {
    values_.add(value);
    updateIntegralValuesIncrementally(value, &integral_values_);
    if (integral_values_.size() != values_.size() + 1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Wrong number of integral values.");
        return;
    }
    computeMinMaxMagnitude();

    // Derivative kernel (-1, 0, +1) centred on the second newest value.
    const int size = static_cast<int>(values_.size());
    const float sobel = size >= 3 ? valueAt(size - 1) - valueAt(size - 3) : 0.0f;
    sobel_values_.add(sobel);
    updateIntegralValuesIncrementally(sobel, &integral_sobel_values_);
    if (integral_sobel_values_.size() != sobel_values_.size() + 1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Wrong number of integral sobel values.");
    }
}

void SeqSample::addNewValues(const float* new_values, int count) {
    if (new_values == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "new_values must not be NULL.");
        return;
    }
    for (int i = 0; i < count; ++i) addNewValue(new_values[i]);
}

void SeqSample::clear() {
    values_.clear();
    integral_values_.clear();
    sobel_values_.clear();
    integral_sobel_values_.clear();
    magnitude_ = 0.0f;
    inverse_magnitude_ = 0.0f;
    min_value_ = 0.0f;
    max_value_ = 0.0f;
}

void SeqSample::updateIntegralValuesIncrementally(float new_value, ReverseCircularBuffer<float>* integral_values) {
    if (integral_values == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "integral_values must not be NULL.");
        return;
    }
    if (integral_values->empty()) integral_values->add(0.0f);
    if (fabsf(integral_values->at(0)) > FLT_EPSILON) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Element 0 of integral_values must be zero.");
        return;
    }
    if (integral_values->full()) {
        // The oldest sum falls out: shift every sum down by element 1 so that
        // the new element 0 is zero.
        const float base = integral_values->at(1);
        integral_values->dropOldestAndSubtract(base);
    }
    integral_values->add(integral_values->newest() + new_value);
    if (fabsf(integral_values->at(0)) > FLT_EPSILON) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Element 0 of integral_values must be zero.");
    }
    integral_values->set(0, 0.0f);  // drop the rounding drift
}

void SeqSample::computeMinMaxMagnitude() {
    values_.minMax(&min_value_, &max_value_);
    magnitude_ = max_value_ - min_value_;
    if (magnitude_ < 0.0f) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Sample magnitude must be non-negative.");
    }
    inverse_magnitude_ = magnitude_ > 0.0f ? static_cast<float>(1.0 / magnitude_) : 0.0f;
}

android::String8 SeqSample::debugString() const {
    android::String8 out = android::String8::format("capacity=%d, size=%d, minValue=%f, maxValue=%f, values=[",
                                                    static_cast<int>(values_.capacity()),
                                                    static_cast<int>(values_.size()), min_value_, max_value_);
    for (int i = 0; i < static_cast<int>(values_.size()); ++i) out.appendFormat("%.2f ", values_.at(i));
    out.append("]");
    return out;
}

}  // namespace velto
