#ifndef VELTO_TIME_STATE_DETECTOR_INTERFACE_H
#define VELTO_TIME_STATE_DETECTOR_INTERFACE_H

#include "detectors/EyeGestureDetectorInterface.h"

namespace velto {

// Implemented beside EyeGestureDetectorInterface by a detector that keeps
// state tied to the sample clock (last detection time, windows). A module
// finds it with a cast, so the detector interfaces stay as they are.
class TimeStateDetectorInterface {
public:
    virtual ~TimeStateDetectorInterface() {}
    // The sample clock went back (a hub reset): forgets everything tied to
    // the old clock, so that the next samples are judged as after
    // construction.
    virtual void resetTimeState() = 0;

    // resetTimeState() of a detector that has it, else reset().
    static void resetTimeStateOf(EyeGestureDetectorInterface* detector) {
        TimeStateDetectorInterface* timed = dynamic_cast<TimeStateDetectorInterface*>(detector);
        if (timed != nullptr) {
            timed->resetTimeState();
        } else if (detector != nullptr) {
            detector->reset();
        }
    }
};

}  // namespace velto

#endif  // VELTO_TIME_STATE_DETECTOR_INTERFACE_H
