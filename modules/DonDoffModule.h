#ifndef VELTO_DON_DOFF_MODULE_H
#define VELTO_DON_DOFF_MODULE_H

#include <stdint.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <atomic>

#include "calibration/DonDoffCalibrator.h"
#include "modules/GazeServiceModuleCommon.h"
#include "sensor/ProximitySensorInterface.h"

namespace velto {

// Reports DON and DOFF as the hub decides them from the thresholds it holds.
// The module switches the hub's detector on and off, forwards its verdicts and
// keeps the wear time for the dump; its calibration is the calibrator's.
class DonDoffModule : public GazeServiceCalibratedModuleBase,
                      public virtual ProximitySensorInterface::DonDoffListener {
public:
    static const char kModuleName[];     // "DonDoffModule"
    static const char kModuleVersion[];  // "DonDoffModule 1.0"

    explicit DonDoffModule(ProximitySensorInterface* proxSensor);
    virtual ~DonDoffModule();

    void serviceReady() override;
    bool canStart() const override;
    using GazeServiceCalibratedModuleBase::start;  // start() is start(false, -1)
    int start(bool oneShot, int timeout) override;
    int stop() override;
    bool hasValidCalibration() const override;
    int loadCalibration() override;
    int commitCalibration() override;
    int clearCalibration() override;
    int saveCalibration() const override;
    int beginCalibrationInterval() override;
    int endCalibrationInterval() override;
    bool isCalibrationComplete() const override;
    android::String8 getVersionString() const override;
    android::String8 dump() const override;

    void onDonDoff(bool donned) override;

private:
    int stop_l();

    mutable android::Mutex mLock;
    ProximitySensorInterface* mProxSensor;
    android::sp<DonDoffCalibrator> mCalibrator;
    // Written only by onDonDoff on the sensor thread; read by dump.
    std::atomic<uint64_t> mElapsedDonTimeMs;
    std::atomic<uint64_t> mLastDonTimeMs;
    std::atomic<uint64_t> mLastDoffTimeMs;
};

}  // namespace velto

#endif  // VELTO_DON_DOFF_MODULE_H
