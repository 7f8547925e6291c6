// Where GazeService meets the concrete sensor and module classes.
#include <log/log.h>

#include "modules/DonDoffModule.h"
#include "modules/DoubleBlinkModule.h"
#include "modules/GazeServiceModuleInterface.h"
#include "modules/LookAtScreenModule.h"
#include "modules/WinkModule.h"
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

GazeServiceModuleInterface* GazeService::createModuleForEyeGesture(const android::String8& serialNumber,
                                                                   EyeGesture gesture,
                                                                   ProximitySensorInterface* sensor) {
    if (sensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Prox Sensor cannot be NULL!  Cannot create a GazeServiceModule!");
        return nullptr;
    }
    // One row per gesture family: the hardware test and the module's maker.
    // DOFF is tested as DON and made by the same maker.
    EyeGesture test = gesture;
    GazeServiceModuleInterface* (*make)(ProximitySensorInterface*) = nullptr;
    switch (gesture) {
        case WINK:
            make = [](ProximitySensorInterface* s) -> GazeServiceModuleInterface* { return new WinkModule(s); };
            break;
        case DOUBLE_BLINK:
            make = [](ProximitySensorInterface* s) -> GazeServiceModuleInterface* { return new DoubleBlinkModule(s); };
            break;
        case DON:
        case DOFF:
            test = DON;
            make = [](ProximitySensorInterface* s) -> GazeServiceModuleInterface* { return new DonDoffModule(s); };
            break;
        case LOOK_AT_SCREEN:
            make = [](ProximitySensorInterface* s) -> GazeServiceModuleInterface* { return new LookAtScreenModule(s); };
            break;
        default:
            break;
    }
    if (make == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "No factory method for module for eye gesture: %d (%s)", gesture,
                            eyeGestureAsString8(gesture).string());
        return nullptr;
    }
    GazeServiceModuleInterface* module = doesHardwareSupportGesture(serialNumber, test) ? make(sensor) : nullptr;
    if (module == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "... failed to create module for gesture: %s.",
                            eyeGestureAsString8(gesture).string());
    }
    return module;
}

}  // namespace velto
