#include "detectors/TestBlinkDetector.h"

namespace velto {

int TestBlinkDetector::update(long long, const float* newSamples, int numSamples) {
    if (numSamples < 1 || newSamples == nullptr) return -1;
    const float value = newSamples[0];
    if (!mState) {
        if (value > kOnThreshold) {
            mState = true;
            return 0;
        }
    } else if (value < kOffThreshold) {
        mState = false;
    }
    return -1;
}

}  // namespace velto
