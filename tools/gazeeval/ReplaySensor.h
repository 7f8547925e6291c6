#ifndef VELTO_GAZEEVAL_REPLAY_SENSOR_H
#define VELTO_GAZEEVAL_REPLAY_SENSOR_H

#include "sensor/ProximitySensorInterface.h"

namespace velto {
namespace gazetools {

// The sensor behind detectors and calibrators that a replay feeds directly:
// it delivers nothing by itself, accepts listeners and parameters, and keeps
// the parameters last written.
class ReplaySensor : public virtual ProximitySensorInterface {
public:
    android::String8 getNameString() const override { return android::String8("replay"); }
    android::String8 getVersionString() const override { return android::String8("replay"); }
    android::String8 getParameterString(const android::String8&) const override { return android::String8(); }
    android::String8 getParameterString() const override { return android::String8(); }
    android::String8 getRawFifoDataString(const android::String8&) const override { return android::String8(); }
    bool isHardwareAvailable() const override { return true; }
    void setPause(bool) override {}
    TriStateBool isPaused() const override { return TRI_STATE_FALSE; }
    bool forceFirmwareUpdate() override { return true; }
    void flush() override {}
    bool setMCUParams(const MCUParams& params) override {
        mParams = params;
        return true;
    }
    bool getMCUParams(MCUParams* params) const override {
        *params = mParams;
        return true;
    }
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

private:
    MCUParams mParams;
};

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_REPLAY_SENSOR_H
