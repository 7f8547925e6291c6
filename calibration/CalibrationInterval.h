#ifndef VELTO_CALIBRATION_INTERVAL_H
#define VELTO_CALIBRATION_INTERVAL_H

#include "sensor/ProximitySensorInterface.h"

namespace velto {

// How the don/doff and look-at-screen calibrators open and close the interval
// in which they collect samples: the checks, the log lines and the listener
// registration with the sensor. The calibrator keeps its own open flag and
// holds its lock around every call.
class CalibrationInterval {
public:
    // `tag` is the calibrator's log tag, `calibratorName` its class name and
    // `sessionName` how its session is called in the start line.
    constexpr CalibrationInterval(const char* tag, const char* calibratorName, const char* sessionName)
        : mTag(tag), mCalibratorName(calibratorName), mSessionName(sessionName) {}

    // Logs the start; false, with the reason, without a sensor or while the
    // interval is already open.
    bool mayBegin(ProximitySensorInterface* sensor, bool calibrating) const;
    // Opens the interval: `listener` receives the sensor's samples from now on.
    void begin(ProximitySensorInterface* sensor, ProximitySensorInterface::ProxDataListener* listener,
               bool* calibrating) const;
    // Closes the interval; false when it was not open.
    bool end(ProximitySensorInterface* sensor, ProximitySensorInterface::ProxDataListener* listener,
             bool* calibrating) const;
    // After a sample: closes the interval once more than `maxSamples` arrived.
    void endWhenOverfull(long long numSamples, long long maxSamples, ProximitySensorInterface* sensor,
                         ProximitySensorInterface::ProxDataListener* listener, bool* calibrating) const;
    // A sample arrived outside the interval.
    void warnNotCalibrating() const;

private:
    const char* mTag;
    const char* mCalibratorName;
    const char* mSessionName;
};

}  // namespace velto

#endif  // VELTO_CALIBRATION_INTERVAL_H
