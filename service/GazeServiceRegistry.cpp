// The half of GazeService that binds gestures to modules: the module table,
// the hardware-revision rule, and the routing of per-gesture calls.
#include <log/log.h>

#include "modules/GazeServiceModuleInterface.h"
#include "sensor/ProximitySensorInterface.h"
#include "service/GazeService.h"

namespace velto {

namespace {
const char kTag[] = "GazeService";

const char* name(GazeServiceInterface::EyeGesture gesture) { return GazeService::eyeGestureAsString8(gesture).string(); }
}  // namespace

GazeServiceModuleInterface* GazeService::moduleFor(EyeGesture gesture) const {
    // A value outside the table has no module, like the gestures without one.
    const unsigned int index = static_cast<unsigned int>(gesture);
    return index < NUM_EYE_GESTURES ? mModuleByGesture[index].load() : nullptr;
}

bool GazeService::isGestureSupported(EyeGesture gesture) const { return moduleFor(gesture) != nullptr; }

android::String8 GazeService::getModuleNameForEyeGesture(EyeGesture gesture) const {
    GazeServiceModuleInterface* module = moduleFor(gesture);
    return module != nullptr ? android::String8(module->getName()) : android::String8();
}

void GazeService::createModules() {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "ERROR: mProxSensor cannot be NULL!");
        return;
    }
    for (int g = 0; g < NUM_EYE_GESTURES; ++g) {
        const EyeGesture gesture = static_cast<EyeGesture>(g);
        mModuleByGesture[g].store(nullptr);
        if (gesture == DOFF) {
            // DON and DOFF are one module: owned, started and stopped once.
            __android_log_print(ANDROID_LOG_INFO, kTag, "Mapping %s gesture to same module as %s...", name(DOFF),
                                name(DON));
            mModuleByGesture[DOFF].store(mModuleByGesture[DON].load());
            continue;
        }
        __android_log_print(ANDROID_LOG_INFO, kTag, "Creating module for gesture: %d=%s...", g, name(gesture));
        GazeServiceModuleInterface* module = createModuleForEyeGesture(mSerialNumber, gesture, mProxSensor);
        if (module != nullptr) {
            mModules.push(module);
            mModuleByGesture[g].store(module);
            __android_log_print(ANDROID_LOG_INFO, kTag, "... done creating module.");
        } else {
            __android_log_print(ANDROID_LOG_WARN, kTag, "No module for gesture: %d=%s", g, name(gesture));
        }
    }
}

bool GazeService::doesHardwareSupportGesture(const android::String8& serialNumber, EyeGesture gesture) {
    if (serialNumber.length() == 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "The Velto Serial Number was not able to be read!");
    }
    // The first letter of the serial number is the hardware revision.
    const unsigned char rev = serialNumber.length() > 0 ? static_cast<unsigned char>(serialNumber.string()[0]) : 0;
    switch (gesture) {
        case WINK:
        case DOUBLE_WINK: {
            const char revText[2] = {static_cast<char>(rev), '\0'};
            const bool supported = rev > 'F';
            __android_log_print(ANDROID_LOG_INFO, kTag, "Checking that hardware rev ('%s' >= 'G') to run WINK: %s",
                                revText, supported ? "true" : "false");
            return supported;
        }
        case BLINK:
        case DOUBLE_BLINK:
        case DON:
        case DOFF:
        case LOOK_AT_SCREEN:
        case LOOK_AWAY_FROM_SCREEN:
            return true;
        default:
            return false;
    }
}

bool GazeService::startModuleForGesture_l(EyeGesture gesture, bool oneShot, int timeoutMillis) {
    return moduleFor(gesture)->start(oneShot, timeoutMillis) == OK;
}

bool GazeService::stopModuleForGesture_l(EyeGesture gesture) { return moduleFor(gesture)->stop() == OK; }

bool GazeService::isGestureDetectorRunning_l(EyeGesture gesture) const { return moduleFor(gesture)->isRunning(); }

void GazeService::stopAllModules_l() {
    for (size_t i = 0; i < mModules.size(); ++i) {
        if (mModules[i]->isRunning()) mModules[i]->stop();
    }
}

void GazeService::flushProxSensorFifo_l() {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "No prox sensor, can't flush!");
        return;
    }
    mProxSensor->flush();
}

bool GazeService::startGestureDetector(EyeGesture gesture, bool oneShot, int timeoutMillis) {
    android::Mutex::Autolock lock(mLock);
    if (moduleFor(gesture) == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot start module for gesture %s... module is NULL!", name(gesture));
        return false;
    }
    return startModuleForGesture_l(gesture, oneShot, timeoutMillis);
}

bool GazeService::stopGestureDetector(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    if (moduleFor(gesture) == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot stop module for gesture %s... module is NULL!", name(gesture));
        return false;
    }
    return stopModuleForGesture_l(gesture);
}

bool GazeService::isGestureDetectorRunning(EyeGesture gesture) const {
    android::Mutex::Autolock lock(mLock);
    if (moduleFor(gesture) == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot check if detector is running for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    return isGestureDetectorRunning_l(gesture);
}

bool GazeService::loadCalibrationForGesture(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load calibration for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    return module->loadCalibration() == OK;
}

bool GazeService::applyAndSaveCalibrationForGesture(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not apply and save calibration for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    int status = module->commitCalibration();
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Could not commit calibration for gesture %s (status=%d)!  Not saving!",
                            name(gesture), status);
        return false;
    }
    status = module->saveCalibration();
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Could not save calibration for gesture %s (status=%d)!",
                            name(gesture), status);
        return false;
    }
    return true;
}

bool GazeService::startCalibrationIntervalForGesture(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    // A calibration may begin on a service that was never started.
    if (!start_l()) return false;
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not start calibration interval for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "GazeService: start calibration interval for gesture %s.", name(gesture));
    // The calibration sees only samples taken from now on.
    flushProxSensorFifo_l();
    return module->beginCalibrationInterval() == OK;
}

bool GazeService::endCalibrationIntervalForGesture(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not end calibration interval for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    return module->endCalibrationInterval() == OK;
}

bool GazeService::clearCalibrationForGesture(EyeGesture gesture) {
    android::Mutex::Autolock lock(mLock);
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not clear calibration for gesture %s. Module is NULL.",
                            name(gesture));
        return false;
    }
    return module->clearCalibration() == OK;
}

bool GazeService::isCalibrationCompleteForGesture(EyeGesture gesture) const {
    android::Mutex::Autolock lock(mLock);
    GazeServiceModuleInterface* module = moduleFor(gesture);
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Can not check if calibration is complete for gesture %s. Module is NULL.", name(gesture));
        return false;
    }
    return module->isCalibrationComplete();
}

}  // namespace velto
