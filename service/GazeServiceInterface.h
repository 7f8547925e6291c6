#ifndef VELTO_GAZE_SERVICE_INTERFACE_H
#define VELTO_GAZE_SERVICE_INTERFACE_H

#include <stdint.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace velto {

// The one boundary that libveltogaze exports. A client obtains the service
// with getInstance(), sets its listener, keeps the master enable on, calls
// start(), then starts the detector of each gesture it wants and receives
// every detected gesture as a synchronous call on its listener.
class GazeServiceInterface {
public:
    // Based on int, so that any value a client passes is a valid EyeGesture
    // for the range checks of the service (values past 7 have no module).
    enum EyeGesture : int {
        WINK = 0,
        DOUBLE_WINK = 1,
        BLINK = 2,
        DOUBLE_BLINK = 3,
        DON = 4,
        DOFF = 5,
        LOOK_AT_SCREEN = 6,
        LOOK_AWAY_FROM_SCREEN = 7,
        NUM_EYE_GESTURES = 8,  // no gesture
    };

    // Implemented by the client. Called on the sensor's event thread, so it
    // must return quickly and must not call back into the service's locked
    // operations of the same gesture (stopping a one-shot is done for it).
    class GazeListenerInterface : public virtual android::RefBase {
    public:
        // Monotonic-clock nanoseconds (systemTime(SYSTEM_TIME_MONOTONIC)).
        virtual void onEyeGesture(EyeGesture gesture, int64_t startTimeNanos, int64_t endTimeNanos) = 0;

    protected:
        virtual ~GazeListenerInterface() {}
    };

    virtual ~GazeServiceInterface() {}

    virtual void setGazeListener(const android::sp<GazeListenerInterface>& listener) = 0;
    virtual bool isHardwareAvailable() const = 0;
    virtual bool getMasterEnable() const = 0;
    virtual void setMasterEnable(bool enable) = 0;
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual bool startLogging() = 0;
    virtual bool stopLogging() = 0;
    virtual bool isLogging() const = 0;
    virtual void dump(android::String8& out) = 0;
    virtual bool isGestureSupported(EyeGesture gesture) const = 0;
    // `timeoutMillis` -1 means no timeout.
    virtual bool startGestureDetector(EyeGesture gesture, bool oneShot, int timeoutMillis) = 0;
    virtual bool stopGestureDetector(EyeGesture gesture) = 0;
    virtual bool loadCalibrationForGesture(EyeGesture gesture) = 0;
    virtual bool applyAndSaveCalibrationForGesture(EyeGesture gesture) = 0;
    virtual bool startCalibrationIntervalForGesture(EyeGesture gesture) = 0;
    virtual bool endCalibrationIntervalForGesture(EyeGesture gesture) = 0;
    virtual bool clearCalibrationForGesture(EyeGesture gesture) = 0;
    virtual bool isCalibrationCompleteForGesture(EyeGesture gesture) const = 0;
    // Reports `gesture` to the listener now, as a span of 10 ms ending now.
    virtual void sendEyeGestureEventNow(EyeGesture gesture) = 0;

    // The process-wide service, created on first use; never destroyed.
    static GazeServiceInterface* getInstance();
};

}  // namespace velto

#endif  // VELTO_GAZE_SERVICE_INTERFACE_H
