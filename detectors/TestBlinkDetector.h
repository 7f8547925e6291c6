#ifndef VELTO_TEST_BLINK_DETECTOR_H
#define VELTO_TEST_BLINK_DETECTOR_H

#include "detectors/EyeGestureDetectorInterface.h"

namespace velto {

// A threshold stand-in for tests: answers gesture 0 when the reading rises
// above 999 and re-arms once it falls below 899. It leaves reset() to the
// subclass that uses it.
class TestBlinkDetector : public virtual EyeGestureDetectorInterface {
public:
    static constexpr float kOnThreshold = 999.0f;
    static constexpr float kOffThreshold = 899.0f;

    TestBlinkDetector() : mState(false) {}

    int update(long long timestamp, const float* newSamples, int numSamples) override;
    android::String8 getVersionString() const override { return android::String8("0.0.1"); }
    android::String8 getDebugString() const override {
        return android::String8("TestBlinkDetector: For testing purposes only.");
    }

private:
    bool mState;
};

}  // namespace velto

#endif  // VELTO_TEST_BLINK_DETECTOR_H
