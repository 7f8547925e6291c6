#ifndef VELTO_WINK_MODULE_H
#define VELTO_WINK_MODULE_H

#include <stdint.h>
#include <utils/Mutex.h>
#include <utils/String8.h>

#include "detectors/CalibratedEyeGestureDetectorInterface.h"
#include "modules/GazeServiceModuleCommon.h"
#include "proxdata/ProxDataBuffer.h"
#include "sensor/ProxDataDiscontinuityListener.h"
#include "sensor/ProximitySensorInterface.h"
#include "service/GazeServiceInterface.h"

namespace velto {

// Reports WINK while saving power: a running module listens only for the
// hub's own low-power wink interrupt. Each one switches it to high-power
// validation, where it takes the full sample stream (with the samples of the
// suspected wink replayed first) for a bounded number of samples and lets the
// calibrated wink detector confirm or reject the wink.
class WinkModule : public GazeServiceCalibratedModuleBase,
                   public virtual ProximitySensorInterface::LowPowerWinkListener,
                   public virtual ProximitySensorInterface::ProxDataListener,
                   public virtual ProxDataDiscontinuityListener {
public:
    static const char kModuleName[];                         // "WinkModule"
    static const char kModuleVersion[];                      // "1.0.2"
    static const char kDefaultCalibrationFilename[];         // "/data/system/gaze/wink_calibration.txt"
    static const char kMultiDurationWinkDetectorFilename[];  // "/system/etc/gaze/multi_dur_wink_detector.txt"
    static const int32_t kLowPowerWinkHoldoffSamples;        // half a second
    static const unsigned int kBufferCapacity;               // fifty seconds
    static const int64_t kWinkValidationSamples = 52;
    static const int64_t kFlaggedSampleMinimumBudget = 20;

    explicit WinkModule(ProximitySensorInterface* proxSensor);
    // For tests: nothing is owned, nothing is logged.
    WinkModule(ProximitySensorInterface* proxSensor, CalibratedEyeGestureDetectorInterface* detector,
               GazeServiceInterface* service, const char* calibrationFilename);
    virtual ~WinkModule();

    // A calibrated multi-duration wink detector loaded from `filename`, or null.
    static CalibratedEyeGestureDetectorInterface* createWinkDetector(const char* filename,
                                                                     ProximitySensorInterface* sensor);

    void serviceReady() override;
    bool canStart() const override;
    using GazeServiceCalibratedModuleBase::start;  // start() is start(false, -1)
    int start(bool oneShot, int timeout) override;
    int stop() override;
    bool hasValidCalibration() const override { return canStart(); }
    int loadCalibration() override;
    int commitCalibration() override;
    int clearCalibration() override;
    int saveCalibration() const override;
    int beginCalibrationInterval() override;
    int endCalibrationInterval() override;
    bool isCalibrationComplete() const override;
    android::String8 getVersionString() const override;
    android::String8 dump() const override;

    void onLowPowerWink() override;
    void onProxData(const ProxData& sample) override;
    void onProxDataDiscontinuity(long long fromNs, long long toNs) override;

private:
    int stop_l();
    int loadCalibration_l(const android::String8& file);
    int saveCalibration_l(const android::String8& file) const;
    void enterHighPowerDetectionMode_l(int64_t numSamples, int64_t numHistoricSamples);
    void exitHighPowerDetectionMode_l();
    int updateWinkDetector_l(const ProxData& sample);

    bool mIsInHighPowerMode;
    bool mOneShot;
    GazeServiceInterface* mGazeService;
    ProximitySensorInterface* mProxSensor;
    mutable android::Mutex mLock;
    CalibratedEyeGestureDetectorInterface* mWinkDetector;
    bool mOwnsDetector;
    ProxDataBuffer mProxDataBuffer;
    int64_t mNumSamplesRemainingToValidateWink;
    int32_t mLowPowerWinkHoldoffSamples;
    int64_t mNumProxPacketsRead;
    int64_t mLatestTimestampNs;
    int64_t mLastLowPowerWinkTimeMs;
    int64_t mLastProxEventTimeMs;
    int32_t mNumLowPowerEvents;
    int32_t mNumHighPowerEvents;
    android::String8 mCalibrationFilename;
};

}  // namespace velto

#endif  // VELTO_WINK_MODULE_H
