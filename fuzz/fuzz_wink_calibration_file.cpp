// The high-power wink calibration file: "mag_min mag_max dur_min dur_max index".
// Whatever it holds, the ranges derived from it, the detector choice and the
// hub thresholds computed from it must not fault.
#include <stdint.h>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "fuzz/fuzz_sandbox.h"
#include "sensor/ProximitySensorInterface.h"

namespace {

// A hub that accepts every parameter and has no listeners.
class StubSensor : public velto::ProximitySensorInterface {
public:
    android::String8 getNameString() const override { return android::String8("stub"); }
    android::String8 getVersionString() const override { return android::String8("stub"); }
    android::String8 getParameterString(const android::String8&) const override { return android::String8(); }
    android::String8 getParameterString() const override { return android::String8(); }
    android::String8 getRawFifoDataString(const android::String8&) const override { return android::String8(); }
    bool isHardwareAvailable() const override { return true; }
    void setPause(bool) override {}
    velto::TriStateBool isPaused() const override { return velto::TRI_STATE_FALSE; }
    bool forceFirmwareUpdate() override { return true; }
    void flush() override {}
    bool setMCUParams(const velto::MCUParams&) override { return true; }
    bool getMCUParams(velto::MCUParams* params) const override { return params != nullptr; }
    bool setDonThreshold(unsigned short) override { return true; }
    bool setDoffThreshold(unsigned short) override { return true; }
    bool setDonMaxThreshold(unsigned short) override { return true; }
    void addDonDoffListener(DonDoffListener*, bool) override {}
    void removeDonDoffListener(DonDoffListener*) override {}
    bool isDonDoffEnabled() const override { return false; }
    bool isLowPowerMode() const override { return false; }
    void addLowPowerWinkListener(LowPowerWinkListener*) override {}
    void removeLowPowerWinkListener(LowPowerWinkListener*) override {}
    void addProxDataListener(ProxDataListener*) override {}
    void addProxDataListener(ProxDataListener*, long long) override {}
    void removeProxDataListener(ProxDataListener*) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velto::fuzz;
    sandboxRoot();
    if (!writeUnderRoot("/cal.txt", data, size)) return 0;
    static StubSensor sensor;
    velto::CalibratedMultiDurationWinkDetector wink(&sensor);
    wink.addDetector(new velto::BoostingDetector(), velto::Interval<float>(280.0f, 500.0f));
    wink.addDetector(new velto::BoostingDetector(), velto::Interval<float>(400.0f, 800.0f));
    // One calibration sample, so that the hub thresholds can be computed.
    wink.startCalibrationInterval();
    const float sample = 1000.0f;
    wink.update(1000000000LL, &sample, 1);
    wink.endCalibrationInterval();

    if (wink.loadHighPowerCalibration("/cal.txt")) {
        wink.chooseBestDetectorBasedOnCalibrationDuration();
        (void)wink.getActiveDetector();
        velto::BoostingDetector::GestureInfo info;
        info.magnitude = wink.getAcceptableMagnitudeRange().min;
        info.duration = wink.getAcceptableDurationRangeMs().max;
        (void)wink.isWinkConsistentWithCalibration(info);
        velto::MCUParams params;
        (void)wink.computeMCUParams(&params);
    }
    (void)wink.getDebugString();
    wink.saveHighPowerCalibration("/cal_out.txt");
    return 0;
}
