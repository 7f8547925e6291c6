#ifndef VELTO_PROXIMITY_SENSOR_INTERFACE_H
#define VELTO_PROXIMITY_SENSOR_INTERFACE_H

#include <utils/String8.h>

#include "calibration/MCUParams.h"
#include "proxdata/ProxData.h"
#include "veltoutils/Utils.h"

namespace velto {

// The eye-facing proximity sensor as the rest of the library sees it: samples
// for data listeners, device-on/off verdicts for don/doff listeners, the hub's
// own wink detections for low-power-wink listeners, and the hub's detection
// parameters. Listeners are not owned; remove one before destroying it.
// Callbacks arrive on the sensor's event thread with no sensor lock held, so a
// listener may add or remove listeners from inside its callback.
class ProximitySensorInterface {
public:
    class ProxDataListener {
    public:
        virtual ~ProxDataListener() {}
        // One call per sample. A listener that keeps time state on the hub's
        // clock also implements ProxDataDiscontinuityListener.
        virtual void onProxData(const ProxData& data) = 0;
    };

    class DonDoffListener {
    public:
        virtual ~DonDoffListener() {}
        // `donned` is true when the device is on the head.
        virtual void onDonDoff(bool donned) = 0;
    };

    class LowPowerWinkListener {
    public:
        virtual ~LowPowerWinkListener() {}
        virtual void onLowPowerWink() = 0;
    };

    virtual ~ProximitySensorInterface() {}

    virtual android::String8 getNameString() const = 0;
    virtual android::String8 getVersionString() const = 0;
    virtual android::String8 getParameterString(const android::String8& separator) const = 0;
    virtual android::String8 getParameterString() const = 0;
    virtual android::String8 getRawFifoDataString(const android::String8& separator) const = 0;
    virtual bool isHardwareAvailable() const = 0;
    virtual void setPause(bool pause) = 0;
    virtual TriStateBool isPaused() const = 0;
    virtual bool forceFirmwareUpdate() = 0;
    // Drops the samples buffered so far (hub FIFO and history).
    virtual void flush() = 0;
    virtual bool setMCUParams(const MCUParams& params) = 0;
    virtual bool getMCUParams(MCUParams* params) const = 0;
    virtual bool setDonThreshold(unsigned short threshold) = 0;
    virtual bool setDoffThreshold(unsigned short threshold) = 0;
    virtual bool setDonMaxThreshold(unsigned short threshold) = 0;
    // With `notifyNow`, the listener is told the last known state at once.
    virtual void addDonDoffListener(DonDoffListener* listener, bool notifyNow) = 0;
    virtual void removeDonDoffListener(DonDoffListener* listener) = 0;
    virtual bool isDonDoffEnabled() const = 0;
    virtual bool isLowPowerMode() const = 0;
    virtual void addLowPowerWinkListener(LowPowerWinkListener* listener) = 0;
    virtual void removeLowPowerWinkListener(LowPowerWinkListener* listener) = 0;
    virtual void addProxDataListener(ProxDataListener* listener) = 0;
    // The listener first receives the buffered samples of the last `historyMs`.
    virtual void addProxDataListener(ProxDataListener* listener, long long historyMs) = 0;
    virtual void removeProxDataListener(ProxDataListener* listener) = 0;
};

}  // namespace velto

#endif  // VELTO_PROXIMITY_SENSOR_INTERFACE_H
