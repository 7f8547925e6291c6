#ifndef VELTO_LOOK_AT_SCREEN_MODULE_H
#define VELTO_LOOK_AT_SCREEN_MODULE_H

#include <stdint.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include "calibration/LookAtScreenCalibrator.h"
#include "detectors/EyeGestureBoostingDetector.h"
#include "modules/GazeServiceModuleCommon.h"
#include "proxdata/ProxDataBuffer.h"
#include "sensor/ProxDataDiscontinuityListener.h"
#include "sensor/ProximitySensorInterface.h"
#include "service/GazeServiceInterface.h"

namespace velto {

// Reports LOOK_AT_SCREEN. Every sample of the running module goes into a set
// of boosting detectors whose accepted magnitudes start at the wearer's own
// threshold, read from the laser parameter file that its calibrator writes.
// It refuses to start until that threshold is loaded.
class LookAtScreenModule : public GazeServiceCalibratedModuleBase,
                           public virtual ProximitySensorInterface::ProxDataListener,
                           public virtual ProxDataDiscontinuityListener {
public:
    static const char kModuleName[];             // "LookAtScreenModule"
    static const char kModuleVersion[];          // "0.3.4"
    static const char kDefaultDetectorFilename[];  // "/system/etc/gaze/laser_detector_set.txt"
    static const char kDefaultParamsFilename[];    // "/data/system/gaze/laser_params.txt"
    static const unsigned int kBufferCapacity;     // eleven seconds of samples
    static const int64_t kHistoryMs = 500;
    static constexpr float kDefaultThreshold = 18.0f;
    static constexpr float kMaxMagnitude = 500.0f;

    explicit LookAtScreenModule(ProximitySensorInterface* proxSensor);
    LookAtScreenModule(ProximitySensorInterface* proxSensor, const char* paramsFilename, const char* detectorFilename);
    virtual ~LookAtScreenModule();

    void serviceReady() override;
    bool canStart() const override { return true; }
    using GazeServiceCalibratedModuleBase::start;  // start() is start(false, -1)
    int start(bool oneShot, int timeout) override;
    int stop() override;
    bool hasValidCalibration() const override { return mIsCalibrated.load(); }
    int loadCalibration() override;
    int commitCalibration() override;
    int clearCalibration() override;
    int saveCalibration() const override;
    int beginCalibrationInterval() override;
    int endCalibrationInterval() override;
    bool isCalibrationComplete() const override;
    android::String8 getVersionString() const override { return android::String8(kModuleVersion); }
    android::String8 dump() const override;

    void onProxData(const ProxData& sample) override;
    void onProxDataDiscontinuity(long long fromNs, long long toNs) override;

    bool loadBoostingDetectorFromFile();
    bool loadParametersFromFile(const android::String8& file);
    bool applyCalibrationToBoostingDetector();

private:
    int start_l(bool oneShot, int timeout);
    int stop_l();

    bool mOneShot;
    GazeServiceInterface* mGazeService;
    ProximitySensorInterface* mProxSensor;
    android::sp<LookAtScreenCalibrator> mCalibrator;
    mutable android::Mutex mLock;
    int64_t mTimeoutNumSamples;
    ProxDataBuffer mProxDataBuffer;
    float mThresh;
    android::String8 mParamsFilename;
    std::atomic<bool> mIsCalibrated;
    android::String8 mDetectorFilename;
    EyeGestureBoostingDetector* mDetector;
    int64_t mHistoryMs;
};

}  // namespace velto

#endif  // VELTO_LOOK_AT_SCREEN_MODULE_H
