#ifndef VELTO_GAZE_SERVICE_H
#define VELTO_GAZE_SERVICE_H

#include <stdint.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <atomic>
#include <mutex>

#include "service/GazeServiceInterface.h"

namespace velto {

class GazeServiceModuleInterface;
class ProximitySensorInterface;
class ProxDataLogger;

// The only implementation of GazeServiceInterface: owns the modules (one per
// gesture family), the raw-data logger, the master enable and the client's
// listener, and holds the process-wide sensor.
//
// Locks: smSingletonLock only guards creation of the singleton. mLock is taken
// by nearly every public call; never by sendEyeGestureEventNow (called on the
// sensor thread while a client may hold mLock waiting on the sensor),
// getMasterEnable, isGestureSupported, isHardwareAvailable and
// getModuleNameForEyeGesture; dump only tries it. Order: mLock before any
// module lock before the sensor's locks.
class GazeService : public virtual GazeServiceInterface, public virtual android::RefBase {
public:
    // The nominal sample rate; every time and buffer size is derived from it.
    static const float kExpectedDataRateHertz;
    static const android::String8 kVersion;  // "0.12.1"

    static GazeService* getInstance();

    // The name text of a gesture, 0 to 7 only.
    static const android::String8& eyeGestureAsString8(EyeGesture gesture);
    // `n` as a gesture when 0 <= n < 8, else NUM_EYE_GESTURES.
    static EyeGesture intToEyeGesture(int n);

    // Used by getInstance: the sensor is attached at the first start, the
    // serial number read now.
    GazeService();
    // Uses the given sensor and serial number as they are (tests, tools).
    GazeService(ProximitySensorInterface* sensor, const android::String8& serialNumber);
    virtual ~GazeService();

    void setGazeListener(const android::sp<GazeListenerInterface>& listener) override;
    bool isHardwareAvailable() const override;
    bool getMasterEnable() const override;
    void setMasterEnable(bool enable) override;
    bool start() override;
    void stop() override;
    bool startLogging() override;
    bool stopLogging() override;
    bool isLogging() const override;
    void dump(android::String8& out) override;
    bool isGestureSupported(EyeGesture gesture) const override;
    bool startGestureDetector(EyeGesture gesture, bool oneShot, int timeoutMillis) override;
    bool stopGestureDetector(EyeGesture gesture) override;
    bool loadCalibrationForGesture(EyeGesture gesture) override;
    bool applyAndSaveCalibrationForGesture(EyeGesture gesture) override;
    bool startCalibrationIntervalForGesture(EyeGesture gesture) override;
    bool endCalibrationIntervalForGesture(EyeGesture gesture) override;
    bool clearCalibrationForGesture(EyeGesture gesture) override;
    bool isCalibrationCompleteForGesture(EyeGesture gesture) const override;
    void sendEyeGestureEventNow(EyeGesture gesture) override;

    virtual bool isRunning() const;
    virtual bool startLogging(const android::String8& fileName);
    virtual bool isGestureDetectorRunning(EyeGesture gesture) const;

    // The module's name for a gesture, or "" when it has none.
    android::String8 getModuleNameForEyeGesture(EyeGesture gesture) const;

    // The module registry's factory and the hardware-revision rule.
    static GazeServiceModuleInterface* createModuleForEyeGesture(const android::String8& serialNumber,
                                                                 EyeGesture gesture,
                                                                 ProximitySensorInterface* sensor);
    static bool doesHardwareSupportGesture(const android::String8& serialNumber, EyeGesture gesture);

private:
    bool start_l();
    bool isRunning_l() const;
    void updateProxSensorPauseState_l();

    bool initProxSensor_l();
    void createModules();
    bool startModuleForGesture_l(EyeGesture gesture, bool oneShot, int timeoutMillis);
    bool stopModuleForGesture_l(EyeGesture gesture);
    bool isGestureDetectorRunning_l(EyeGesture gesture) const;
    void stopAllModules_l();
    void flushProxSensorFifo_l();
    GazeServiceModuleInterface* moduleFor(EyeGesture gesture) const;

    bool startLogging_l(const android::String8& fileName);
    bool stopLogging_l();
    bool writeHeaderToLog();

    static android::Mutex smSingletonLock;
    static GazeService* smSingleton;

    // Guards only the copy of mGazeListener, so that events can be sent on the
    // sensor thread without the service lock; nothing is called while held.
    mutable std::mutex mListenerLock;
    android::sp<GazeListenerInterface> mGazeListener;
    mutable android::Mutex mLock;
    ProximitySensorInterface* mProxSensor;
    android::Vector<GazeServiceModuleInterface*> mModules;
    // Filled once by createModules; read without the lock by isGestureSupported.
    std::atomic<GazeServiceModuleInterface*> mModuleByGesture[NUM_EYE_GESTURES];
    std::atomic<bool> mIsLogging;
    bool mResumeLoggingOnUnpause;
    std::atomic<bool> mMasterEnable;
    ProxDataLogger* mProxDataLogger;
    std::atomic<int64_t> mStartTime;
    android::String8 mSerialNumber;
};

}  // namespace velto

#endif  // VELTO_GAZE_SERVICE_H
