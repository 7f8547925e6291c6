#ifndef VELTO_DOUBLE_BLINK_MODULE_H
#define VELTO_DOUBLE_BLINK_MODULE_H

#include <stdint.h>
#include <utils/Mutex.h>

#include "detectors/EyeGestureDetectorInterface.h"
#include "modules/GazeServiceModuleCommon.h"
#include "modules/GazeServiceUncalibratedModuleBase.h"
#include "proxdata/ProxDataBuffer.h"
#include "sensor/ProxDataDiscontinuityListener.h"
#include "sensor/ProximitySensorInterface.h"
#include "service/GazeServiceInterface.h"

namespace velto {

// Reports DOUBLE_BLINK: every sample of the running module goes into a set of
// boosting detectors; each positive answer becomes one event. Needs no
// calibration. The only module that can run for a limited time.
class DoubleBlinkModule : public GazeServiceModuleCommon<GazeServiceUncalibratedModuleBase>,
                          public virtual ProximitySensorInterface::ProxDataListener,
                          public virtual ProxDataDiscontinuityListener {
public:
    static const char kModuleName[];        // "DoubleBlinkModule"
    static const char kModuleVersion[];     // "1.1.2"
    static const char kDetectorFilename[];  // "/system/etc/gaze/two_blink_detector_set.txt"
    static const unsigned int kBufferCapacity;  // ten seconds of samples

    explicit DoubleBlinkModule(ProximitySensorInterface* proxSensor);
    // For tests: the detector is not owned.
    DoubleBlinkModule(ProximitySensorInterface* proxSensor, EyeGestureDetectorInterface* detector,
                      GazeServiceInterface* service);
    virtual ~DoubleBlinkModule();

    // A detector-set detector for DOUBLE_BLINK loaded from `filename`, or null.
    static EyeGestureDetectorInterface* createDetector(const char* filename);

    void serviceReady() override {}
    bool canStart() const override;
    using GazeServiceModuleCommon<GazeServiceUncalibratedModuleBase>::start;  // start() is start(false, -1)
    int start(bool oneShot, int timeout) override;
    int stop() override;
    android::String8 getVersionString() const override;
    android::String8 dump() const override;

    void onProxData(const ProxData& sample) override;
    void onProxDataDiscontinuity(long long fromNs, long long toNs) override;

private:
    int stop_l();
    int updateDetector_l(const ProxData& sample) const;

    bool mOneShot;
    GazeServiceInterface* mGazeService;
    ProximitySensorInterface* mProxSensor;
    mutable android::Mutex mLock;
    EyeGestureDetectorInterface* mDetector;
    bool mOwnsDetector;
    int64_t mTimeoutNumSamples;
    ProxDataBuffer mProxDataBuffer;
};

}  // namespace velto

#endif  // VELTO_DOUBLE_BLINK_MODULE_H
