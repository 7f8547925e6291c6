#ifndef VELTO_TEST_FAKE_PROXIMITY_SENSOR_H
#define VELTO_TEST_FAKE_PROXIMITY_SENSOR_H

#include <mutex>
#include <vector>

#include "sensor/ProximitySensorInterface.h"

namespace velto {
namespace test {

// An in-memory sensor for unit tests of everything above the hub driver. It
// keeps the listener lists, the hub's parameters and the pause state, records
// what was asked of it, and delivers samples and interrupts on the calling
// thread when a test asks (deliver*), with no lock held, like the real one.
class FakeProximitySensor : public virtual ProximitySensorInterface {
public:
    struct DataListenerEntry {
        ProxDataListener* listener;
        long long historyMs;
    };

    android::String8 getNameString() const override { return android::String8("Fake Proximity Sensor"); }
    android::String8 getVersionString() const override { return android::String8("fake 1.0"); }
    android::String8 getParameterString(const android::String8& separator) const override;
    android::String8 getParameterString() const override { return getParameterString(android::String8("\n")); }
    android::String8 getRawFifoDataString(const android::String8& separator) const override;
    bool isHardwareAvailable() const override { return true; }
    void setPause(bool pause) override;
    TriStateBool isPaused() const override;
    bool forceFirmwareUpdate() override { return true; }
    void flush() override;
    bool setMCUParams(const MCUParams& params) override;
    bool getMCUParams(MCUParams* params) const override;
    bool setDonThreshold(unsigned short threshold) override { return setThreshold(&MCUParams::donThreshold, threshold); }
    bool setDoffThreshold(unsigned short threshold) override { return setThreshold(&MCUParams::doffThreshold, threshold); }
    bool setDonMaxThreshold(unsigned short threshold) override {
        return setThreshold(&MCUParams::donMaxThreshold, threshold);
    }
    void addDonDoffListener(DonDoffListener* listener, bool notifyNow) override;
    void removeDonDoffListener(DonDoffListener* listener) override;
    bool isDonDoffEnabled() const override;
    bool isLowPowerMode() const override;
    void addLowPowerWinkListener(LowPowerWinkListener* listener) override;
    void removeLowPowerWinkListener(LowPowerWinkListener* listener) override;
    void addProxDataListener(ProxDataListener* listener) override { addProxDataListener(listener, 0); }
    void addProxDataListener(ProxDataListener* listener, long long historyMs) override;
    void removeProxDataListener(ProxDataListener* listener) override;

    // Test side. Deliveries go to a copy of the list, so listeners may add and
    // remove themselves from inside their callbacks.
    void deliverSample(const ProxData& sample);
    void deliverSample(uint32_t value, int64_t timestampNanos) { deliverSample(ProxData(value, timestampNanos)); }
    void deliverDonDoff(bool donned);
    void deliverLowPowerWink();

    std::vector<DataListenerEntry> dataListeners() const;
    size_t numDataListeners() const;
    size_t numDonDoffListeners() const;
    size_t numLowPowerWinkListeners() const;
    int flushCount() const;
    std::vector<bool> pauseCalls() const;

    // Makes the next setter or getter fail (as a failing sysfs write would).
    void failParameterAccess(bool fail);
    void setRawFifoText(const android::String8& text);
    MCUParams params() const;

private:
    bool setThreshold(uint16_t MCUParams::*field, unsigned short threshold);

    mutable std::mutex mMutex;
    std::vector<DataListenerEntry> mDataListeners;
    std::vector<DonDoffListener*> mDonDoffListeners;
    std::vector<LowPowerWinkListener*> mLowPowerWinkListeners;
    MCUParams mParams;
    bool mFailParameterAccess = false;
    TriStateBool mPaused = TRI_STATE_UNKNOWN;
    std::vector<bool> mPauseCalls;
    int mFlushCount = 0;
    bool mDonned = false;
    android::String8 mRawFifo;
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_TEST_FAKE_PROXIMITY_SENSOR_H
