#ifndef VELTO_TEST_FAKE_PROXIMITY_SENSOR_H
#define VELTO_TEST_FAKE_PROXIMITY_SENSOR_H

#include <algorithm>
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
    android::String8 getParameterString(const android::String8& separator) const override {
        const MCUParams p = params();
        android::String8 out;
        out.appendFormat("\t(Param: don_threshold = \"%u\")%s", p.donThreshold, separator.string());
        out.appendFormat("\t(Param: doff_threshold = \"%u\")%s", p.doffThreshold, separator.string());
        return out;
    }
    android::String8 getParameterString() const override { return getParameterString(android::String8("\n")); }
    android::String8 getRawFifoDataString(const android::String8&) const override { return locked(mRawFifo); }
    bool isHardwareAvailable() const override { return true; }
    void setPause(bool pause) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mPaused = Utils::toTriStateBool(pause);
        mPauseCalls.push_back(pause);
    }
    TriStateBool isPaused() const override { return locked(mPaused); }
    bool forceFirmwareUpdate() override { return true; }
    void flush() override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mFlushCount;
    }
    bool setMCUParams(const MCUParams& params) override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!writeSucceeds_l()) return false;
        const android::String8 version = mParams.version;  // the hub has no version field
        mParams = params;
        mParams.version = version;
        return true;
    }
    bool getMCUParams(MCUParams* params) const override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mFailAll || params == nullptr) return false;
        const android::String8 version = params->version;
        *params = mParams;
        params->version = version;
        return true;
    }
    bool setDonThreshold(unsigned short value) override { return setThreshold(&MCUParams::donThreshold, value); }
    bool setDoffThreshold(unsigned short value) override { return setThreshold(&MCUParams::doffThreshold, value); }
    bool setDonMaxThreshold(unsigned short value) override { return setThreshold(&MCUParams::donMaxThreshold, value); }
    void addDonDoffListener(DonDoffListener* listener, bool notifyNow) override {
        const bool donned = add(&mDonDoffListeners, listener);
        if (notifyNow && listener != nullptr) listener->onDonDoff(donned);
    }
    void removeDonDoffListener(DonDoffListener* listener) override { remove(&mDonDoffListeners, listener); }
    bool isDonDoffEnabled() const override { return numDonDoffListeners() > 0; }
    bool isLowPowerMode() const override { return numDataListeners() == 0; }
    void addLowPowerWinkListener(LowPowerWinkListener* listener) override { add(&mLowPowerWinkListeners, listener); }
    void removeLowPowerWinkListener(LowPowerWinkListener* listener) override {
        remove(&mLowPowerWinkListeners, listener);
    }
    void addProxDataListener(ProxDataListener* listener) override { addProxDataListener(listener, 0); }
    void addProxDataListener(ProxDataListener* listener, long long historyMs) override {
        add(&mDataListeners, DataListenerEntry{listener, historyMs});
    }
    void removeProxDataListener(ProxDataListener* listener) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mDataListeners.erase(std::remove_if(mDataListeners.begin(), mDataListeners.end(),
                                            [listener](const DataListenerEntry& e) { return e.listener == listener; }),
                             mDataListeners.end());
    }

    // Test side. Deliveries go to a copy of the list, so listeners may add and
    // remove themselves from inside their callbacks.
    void deliverSample(const ProxData& sample) {
        for (const DataListenerEntry& entry : dataListeners()) entry.listener->onProxData(sample);
    }
    void deliverSample(uint32_t value, int64_t timestampNanos) { deliverSample(ProxData(value, timestampNanos)); }
    void deliverDonDoff(bool donned) {
        mMutex.lock();
        mDonned = donned;
        const std::vector<DonDoffListener*> snapshot = mDonDoffListeners;
        mMutex.unlock();
        for (DonDoffListener* l : snapshot) l->onDonDoff(donned);
    }
    void deliverLowPowerWink() {
        for (LowPowerWinkListener* l : locked(mLowPowerWinkListeners)) l->onLowPowerWink();
    }

    std::vector<DataListenerEntry> dataListeners() const { return locked(mDataListeners); }
    size_t numDataListeners() const { return locked(mDataListeners).size(); }
    size_t numDonDoffListeners() const { return locked(mDonDoffListeners).size(); }
    size_t numLowPowerWinkListeners() const { return locked(mLowPowerWinkListeners).size(); }
    int flushCount() const { return locked(mFlushCount); }
    std::vector<bool> pauseCalls() const { return locked(mPauseCalls); }
    MCUParams params() const { return locked(mParams); }
    void setRawFifoText(const android::String8& text) {
        std::lock_guard<std::mutex> lock(mMutex);
        mRawFifo = text;
    }

    // Makes every parameter write and read fail, as a hub whose attribute
    // files fail would; or only the `n`th write from now (1: the next).
    void failParameterAccess(bool fail) {
        std::lock_guard<std::mutex> lock(mMutex);
        mFailAll = fail;
    }
    void failNthParameterWrite(int n) {
        std::lock_guard<std::mutex> lock(mMutex);
        mFailWriteIn = n;
    }

private:
    template <typename T>
    T locked(const T& member) const {
        std::lock_guard<std::mutex> lock(mMutex);
        return member;
    }
    template <typename T>
    bool add(std::vector<T>* list, const T& item) {
        std::lock_guard<std::mutex> lock(mMutex);
        list->push_back(item);
        return mDonned;
    }
    template <typename T>
    void remove(std::vector<T>* list, T item) {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = std::find(list->begin(), list->end(), item);
        if (it != list->end()) list->erase(it);
    }
    bool writeSucceeds_l() { return !mFailAll && (mFailWriteIn <= 0 || --mFailWriteIn != 0); }
    bool setThreshold(uint16_t MCUParams::*field, unsigned short threshold) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!writeSucceeds_l()) return false;
        mParams.*field = threshold;
        return true;
    }

    mutable std::mutex mMutex;
    std::vector<DataListenerEntry> mDataListeners;
    std::vector<DonDoffListener*> mDonDoffListeners;
    std::vector<LowPowerWinkListener*> mLowPowerWinkListeners;
    MCUParams mParams;
    bool mFailAll = false;
    int mFailWriteIn = 0;  // counts down to the write that fails; 0: none
    TriStateBool mPaused = TRI_STATE_UNKNOWN;
    std::vector<bool> mPauseCalls;
    int mFlushCount = 0;
    bool mDonned = false;
    android::String8 mRawFifo;
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_TEST_FAKE_PROXIMITY_SENSOR_H
