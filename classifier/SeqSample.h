#ifndef VELTO_SEQ_SAMPLE_H
#define VELTO_SEQ_SAMPLE_H

#include <utils/String8.h>

#include "classifier/ReverseCircularBuffer.h"

namespace velto {

// The sliding window of the last L proximity values that a cascade looks at.
// Beside the values it keeps prefix sums of the values and of a 3-tap
// derivative (the Sobel values), so any block sum costs two reads, and the
// window's min, max, magnitude and 1/magnitude for feature normalisation.
//
// After every complete addNewValue: integral size = values size + 1, integral
// element 0 is exactly 0, and element k is the sum of values 0 .. k-1 (oldest
// first); likewise for the Sobel values. Faults are logged under
// "GazeDetector"; nothing here fails hard.
class SeqSample {
public:
    // Longest window: 34 minutes at 32 Hz, far beyond any gesture. A longer
    // one, like a non-positive one, is logged and never fills.
    static constexpr int kMaxLength = 65536;

    explicit SeqSample(int length);
    virtual ~SeqSample() {}

    virtual void addNewValue(float value);
    virtual void addNewValues(const float* new_values, int count);
    virtual void clear();
    virtual float magnitude() const { return magnitude_; }
    virtual float inverseMagnitude() const { return inverse_magnitude_; }
    // Chronological value i (0 = oldest); 0.0 out of range.
    virtual float valueAt(int i) const { return values_.at(i); }
    virtual float integralValueAt(int i) const { return integral_values_.at(i); }
    virtual float integralSobelValueAt(int i) const { return integral_sobel_values_.at(i); }
    // The capacity L, also while the window fills.
    virtual int length() const { return static_cast<int>(values_.capacity()); }
    virtual bool full() const { return values_.full(); }
    virtual bool empty() const { return values_.empty(); }
    // Extends a prefix-sum buffer by one value; once the buffer is full the
    // sums are re-based so that element 0 stays exactly 0 as the oldest
    // element falls out.
    virtual void updateIntegralValuesIncrementally(float new_value, ReverseCircularBuffer<float>* integral_values);
    virtual void computeMinMaxMagnitude();

    float minValue() const { return min_value_; }
    float maxValue() const { return max_value_; }

    // The prefix sums themselves, for the feature loops of the classifiers:
    // the same elements as integralValueAt and integralSobelValueAt, read
    // without a virtual call.
    const ReverseCircularBuffer<float>& integralValues() const { return integral_values_; }
    const ReverseCircularBuffer<float>& integralSobelValues() const { return integral_sobel_values_; }

    // "capacity=%d, size=%d, minValue=%f, maxValue=%f, values=[v0 v1 ...]"
    android::String8 debugString() const;

private:
    ReverseCircularBuffer<float> values_;
    float magnitude_;
    float inverse_magnitude_;
    ReverseCircularBuffer<float> integral_values_;
    ReverseCircularBuffer<float> sobel_values_;
    ReverseCircularBuffer<float> integral_sobel_values_;
    float min_value_;
    float max_value_;
};

}  // namespace velto

#endif  // VELTO_SEQ_SAMPLE_H
