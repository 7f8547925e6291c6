// Where GazeService meets the concrete sensor and module classes.
#include <log/log.h>

#include "modules/GazeServiceModuleInterface.h"
#include "sensor/ProximitySensorInterface.h"
#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"

namespace velto {

namespace {
const char kTag[] = "GazeService";
}

bool GazeService::isHardwareAvailable() const { return VeltohubProximitySensor::existsOnDevice(); }

bool GazeService::initProxSensor_l() {
    mProxSensor = VeltohubProximitySensor::getInstance();
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Proximity hardware doesn't exist!  GazeService will be non-functional!");
        return false;
    }
    return true;
}

GazeServiceModuleInterface* GazeService::createModuleForEyeGesture(const android::String8& /*serialNumber*/,
                                                                   EyeGesture gesture,
                                                                   ProximitySensorInterface* sensor) {
    if (sensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Prox Sensor cannot be NULL!  Cannot create a GazeServiceModule!");
        return nullptr;
    }
    __android_log_print(ANDROID_LOG_WARN, kTag, "No factory method for module for eye gesture: %d (%s)", gesture,
                        eyeGestureAsString8(gesture).string());
    return nullptr;
}

}  // namespace velto
