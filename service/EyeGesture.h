#ifndef VELTO_EYE_GESTURE_H
#define VELTO_EYE_GESTURE_H

#include "service/GazeServiceInterface.h"

namespace velto {

// The gesture vocabulary lives in GazeServiceInterface; this alias spares
// detectors and tools the qualification. Names: GazeService::eyeGestureAsString8,
// conversion from int: GazeService::intToEyeGesture.
typedef GazeServiceInterface::EyeGesture EyeGesture;

}  // namespace velto

#endif  // VELTO_EYE_GESTURE_H
