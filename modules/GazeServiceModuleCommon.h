#ifndef VELTO_GAZE_SERVICE_MODULE_COMMON_H
#define VELTO_GAZE_SERVICE_MODULE_COMMON_H

#include <utils/String8.h>

#include <atomic>

#include "modules/GazeServiceModuleInterface.h"

namespace velto {

// What every module has alike: its running flag and name, and the operations
// that only read them or forward. `Base` is the module interface or the
// uncalibrated base.
template <class Base>
class GazeServiceModuleCommon : public Base {
public:
    const android::String8& getName() const override { return mName; }
    bool isRunning() const override { return mIsRunning.load(); }
    int start() override { return this->start(false, -1); }
    using Base::start;

protected:
    explicit GazeServiceModuleCommon(const char* name) : mIsRunning(false), mName(name) {}

    // Written by the module under its own lock; read without it.
    std::atomic<bool> mIsRunning;
    const android::String8 mName;
};

// The common part of the modules that need a per-user calibration.
class GazeServiceCalibratedModuleBase : public GazeServiceModuleCommon<GazeServiceModuleInterface> {
public:
    bool requiresCalibration() const override { return true; }

protected:
    explicit GazeServiceCalibratedModuleBase(const char* name) : GazeServiceModuleCommon(name) {}
};

// Milliseconds of a start timeout as a number of samples at the nominal rate.
int64_t timeoutMillisToSamples(int timeoutMillis);

}  // namespace velto

#endif  // VELTO_GAZE_SERVICE_MODULE_COMMON_H
