#ifndef VELTO_CALIBRATED_EYE_GESTURE_DETECTOR_INTERFACE_H
#define VELTO_CALIBRATED_EYE_GESTURE_DETECTOR_INTERFACE_H

#include "detectors/EyeGestureDetectorInterface.h"

namespace velto {

// A detector that adapts to its wearer: during a calibration interval the
// wearer performs the gesture a few times; the result is applied, saved and
// loaded again at the next start.
class CalibratedEyeGestureDetectorInterface : public virtual EyeGestureDetectorInterface {
public:
    virtual ~CalibratedEyeGestureDetectorInterface() {}

    virtual bool applyAndSaveCalibration(const char* path) = 0;
    virtual bool loadCalibration(const char* path) = 0;
    // A calibration is in force.
    virtual bool isCalibrated() const = 0;
    // A calibration interval is open.
    virtual bool isCalibrationOn() const = 0;
    virtual bool startCalibrationInterval() = 0;
    virtual bool endCalibrationInterval() = 0;
    // Forgets the in-memory calibration; files stay.
    virtual bool clearCalibration() = 0;
    // During an interval: whether the wearer must perform more gestures.
    virtual bool needMoreCalibrationEyeGestures() const = 0;
};

}  // namespace velto

#endif  // VELTO_CALIBRATED_EYE_GESTURE_DETECTOR_INTERFACE_H
