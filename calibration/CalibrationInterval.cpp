#include "calibration/CalibrationInterval.h"

#include <log/log.h>

namespace velto {

bool CalibrationInterval::mayBegin(ProximitySensorInterface* sensor, bool calibrating) const {
    __android_log_print(ANDROID_LOG_INFO, mTag, "Mark start of %s calibration session.", mSessionName);
    if (sensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, mTag, "mProxSensor must not be NULL in beginCalibrationInterval.");
        return false;
    }
    if (calibrating) {
        __android_log_print(ANDROID_LOG_WARN, mTag,
                            "Calibration is already on. Why do you call beginCalibrationInterval again?!");
        return false;
    }
    return true;
}

void CalibrationInterval::begin(ProximitySensorInterface* sensor, ProximitySensorInterface::ProxDataListener* listener,
                                bool* calibrating) const {
    __android_log_print(ANDROID_LOG_INFO, mTag, "beginCalibrationInterval(): Adding %s as a ProxDataListener...",
                        mCalibratorName);
    *calibrating = true;
    sensor->addProxDataListener(listener);
}

bool CalibrationInterval::end(ProximitySensorInterface* sensor, ProximitySensorInterface::ProxDataListener* listener,
                              bool* calibrating) const {
    __android_log_print(ANDROID_LOG_INFO, mTag, "Mark end of calibration session.");
    if (!*calibrating) {
        __android_log_print(ANDROID_LOG_ERROR, mTag,
                            "Calibration is already off. Why do you call endCalibrationInterval again?!");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, mTag, "endCalibrationInterval_l(): removing %s as a ProxDataListener...",
                        mCalibratorName);
    if (sensor != nullptr) sensor->removeProxDataListener(listener);
    *calibrating = false;
    return true;
}

void CalibrationInterval::endWhenOverfull(long long numSamples, long long maxSamples, ProximitySensorInterface* sensor,
                                          ProximitySensorInterface::ProxDataListener* listener,
                                          bool* calibrating) const {
    if (numSamples <= maxSamples) return;
    __android_log_print(ANDROID_LOG_WARN, mTag,
                        "%s received too many calibration samples and is closing the calibration interval.",
                        mCalibratorName);
    end(sensor, listener, calibrating);
}

void CalibrationInterval::warnNotCalibrating() const {
    __android_log_print(ANDROID_LOG_WARN, mTag, "Not in a calibration session. Why do you send me data?");
}

}  // namespace velto
