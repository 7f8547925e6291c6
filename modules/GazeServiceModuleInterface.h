#ifndef VELTO_GAZE_SERVICE_MODULE_INTERFACE_H
#define VELTO_GAZE_SERVICE_MODULE_INTERFACE_H

#include <stdint.h>
#include <utils/String8.h>

namespace velto {

// Results of module operations; 0 is success.
enum ModuleStatus {
    OK = 0,
    FAILED = 1,       // could not be done: missing sensor or detector, bad argument, file error
    UNSUPPORTED = 2,  // the module does not support this operation or argument
    NO_SENSOR = 3,    // a module that needs the sensor has none
};

// A remaining-sample count that means "no limit"; never counted down.
static const int64_t kInfiniteNumSamples = INT64_MAX;

// One gesture family: subscribes to the sensor, decides gestures and reports
// them to the service, and runs the gesture's per-user calibration.
class GazeServiceModuleInterface {
public:
    virtual ~GazeServiceModuleInterface() {}

    virtual const android::String8& getName() const = 0;
    // Called once when the service has created every module.
    virtual void serviceReady() = 0;
    virtual bool canStart() const = 0;
    // Continuous start: start(false, -1).
    virtual int start() = 0;
    // `oneShot` stops the module after its first gesture; `timeout` is in ms,
    // -1 for none.
    virtual int start(bool oneShot, int timeout) = 0;
    virtual int stop() = 0;
    virtual bool isRunning() const = 0;

    virtual bool requiresCalibration() const = 0;
    virtual bool hasValidCalibration() const = 0;
    virtual int loadCalibration() = 0;
    virtual int commitCalibration() = 0;
    virtual int clearCalibration() = 0;
    virtual int saveCalibration() const = 0;
    virtual int beginCalibrationInterval() = 0;
    virtual int endCalibrationInterval() = 0;
    virtual bool isCalibrationComplete() const = 0;

    virtual android::String8 getVersionString() const = 0;
    virtual android::String8 dump() const = 0;
};

}  // namespace velto

#endif  // VELTO_GAZE_SERVICE_MODULE_INTERFACE_H
