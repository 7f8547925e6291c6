#ifndef VELTO_EYE_GESTURE_DETECTOR_INTERFACE_H
#define VELTO_EYE_GESTURE_DETECTOR_INTERFACE_H

#include <utils/String8.h>

namespace velto {

// What a gesture module feeds with every proximity sample.
class EyeGestureDetectorInterface {
public:
    virtual ~EyeGestureDetectorInterface() {}

    // Forgets all signal history.
    virtual void reset() = 0;
    // Samples taken at `timestamp` (ns). Returns the detected EyeGesture value,
    // or -1 (GazeRecord::kInvalidDetectorResponse) when nothing was detected.
    virtual int update(long long timestamp, const float* newSamples, int numSamples) = 0;
    virtual android::String8 getVersionString() const = 0;
    virtual android::String8 getDebugString() const = 0;
};

}  // namespace velto

#endif  // VELTO_EYE_GESTURE_DETECTOR_INTERFACE_H
