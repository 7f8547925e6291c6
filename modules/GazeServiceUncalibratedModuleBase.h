#ifndef VELTO_GAZE_SERVICE_UNCALIBRATED_MODULE_BASE_H
#define VELTO_GAZE_SERVICE_UNCALIBRATED_MODULE_BASE_H

#include "modules/GazeServiceModuleInterface.h"

namespace velto {

// Base of modules that need no calibration: fixed answers for every
// calibration operation, so the module implements only detection.
class GazeServiceUncalibratedModuleBase : public GazeServiceModuleInterface {
public:
    bool requiresCalibration() const override { return false; }
    bool hasValidCalibration() const override { return false; }
    int loadCalibration() override { return UNSUPPORTED; }
    int commitCalibration() override { return UNSUPPORTED; }
    int clearCalibration() override { return UNSUPPORTED; }
    int saveCalibration() const override { return UNSUPPORTED; }
    int beginCalibrationInterval() override { return UNSUPPORTED; }
    int endCalibrationInterval() override { return UNSUPPORTED; }
    bool isCalibrationComplete() const override { return true; }
};

}  // namespace velto

#endif  // VELTO_GAZE_SERVICE_UNCALIBRATED_MODULE_BASE_H
