#include "tests/harness/FakeProximitySensor.h"

#include <algorithm>

namespace velto {
namespace test {

android::String8 FakeProximitySensor::getParameterString(const android::String8& separator) const {
    MCUParams p = params();
    android::String8 out;
    out.appendFormat("\t(Param: don_threshold = \"%u\")%s", p.donThreshold, separator.string());
    out.appendFormat("\t(Param: doff_threshold = \"%u\")%s", p.doffThreshold, separator.string());
    return out;
}

android::String8 FakeProximitySensor::getRawFifoDataString(const android::String8&) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRawFifo;
}

void FakeProximitySensor::setPause(bool pause) {
    std::lock_guard<std::mutex> lock(mMutex);
    mPaused = Utils::toTriStateBool(pause);
    mPauseCalls.push_back(pause);
}

TriStateBool FakeProximitySensor::isPaused() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mPaused;
}

void FakeProximitySensor::flush() {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mFlushCount;
}

bool FakeProximitySensor::setMCUParams(const MCUParams& params) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mFailParameterAccess) return false;
    android::String8 version = mParams.version;  // the hub has no version field
    mParams = params;
    mParams.version = version;
    return true;
}

bool FakeProximitySensor::getMCUParams(MCUParams* params) const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mFailParameterAccess || params == nullptr) return false;
    params->gain = mParams.gain;
    params->donThreshold = mParams.donThreshold;
    params->doffThreshold = mParams.doffThreshold;
    params->donMaxThreshold = mParams.donMaxThreshold;
    params->winkMin = mParams.winkMin;
    params->winkMax = mParams.winkMax;
    return true;
}

bool FakeProximitySensor::setThreshold(uint16_t MCUParams::*field, unsigned short threshold) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mFailParameterAccess) return false;
    mParams.*field = threshold;
    return true;
}

void FakeProximitySensor::addDonDoffListener(DonDoffListener* listener, bool notifyNow) {
    bool donned;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDonDoffListeners.push_back(listener);
        donned = mDonned;
    }
    if (notifyNow && listener != nullptr) listener->onDonDoff(donned);
}

void FakeProximitySensor::removeDonDoffListener(DonDoffListener* listener) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = std::find(mDonDoffListeners.begin(), mDonDoffListeners.end(), listener);
    if (it != mDonDoffListeners.end()) mDonDoffListeners.erase(it);
}

bool FakeProximitySensor::isDonDoffEnabled() const { return numDonDoffListeners() > 0; }

bool FakeProximitySensor::isLowPowerMode() const { return numDataListeners() == 0; }

void FakeProximitySensor::addLowPowerWinkListener(LowPowerWinkListener* listener) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLowPowerWinkListeners.push_back(listener);
}

void FakeProximitySensor::removeLowPowerWinkListener(LowPowerWinkListener* listener) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = std::find(mLowPowerWinkListeners.begin(), mLowPowerWinkListeners.end(), listener);
    if (it != mLowPowerWinkListeners.end()) mLowPowerWinkListeners.erase(it);
}

void FakeProximitySensor::addProxDataListener(ProxDataListener* listener, long long historyMs) {
    std::lock_guard<std::mutex> lock(mMutex);
    mDataListeners.push_back({listener, historyMs});
}

void FakeProximitySensor::removeProxDataListener(ProxDataListener* listener) {
    std::lock_guard<std::mutex> lock(mMutex);
    mDataListeners.erase(std::remove_if(mDataListeners.begin(), mDataListeners.end(),
                                        [listener](const DataListenerEntry& e) { return e.listener == listener; }),
                         mDataListeners.end());
}

void FakeProximitySensor::deliverSample(const ProxData& sample) {
    std::vector<DataListenerEntry> snapshot = dataListeners();
    for (const DataListenerEntry& entry : snapshot) entry.listener->onProxData(sample);
}

void FakeProximitySensor::deliverDonDoff(bool donned) {
    std::vector<DonDoffListener*> snapshot;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDonned = donned;
        snapshot = mDonDoffListeners;
    }
    for (DonDoffListener* l : snapshot) l->onDonDoff(donned);
}

void FakeProximitySensor::deliverLowPowerWink() {
    std::vector<LowPowerWinkListener*> snapshot;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        snapshot = mLowPowerWinkListeners;
    }
    for (LowPowerWinkListener* l : snapshot) l->onLowPowerWink();
}

std::vector<FakeProximitySensor::DataListenerEntry> FakeProximitySensor::dataListeners() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDataListeners;
}

size_t FakeProximitySensor::numDataListeners() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDataListeners.size();
}

size_t FakeProximitySensor::numDonDoffListeners() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mDonDoffListeners.size();
}

size_t FakeProximitySensor::numLowPowerWinkListeners() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLowPowerWinkListeners.size();
}

int FakeProximitySensor::flushCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mFlushCount;
}

std::vector<bool> FakeProximitySensor::pauseCalls() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mPauseCalls;
}

void FakeProximitySensor::failParameterAccess(bool fail) {
    std::lock_guard<std::mutex> lock(mMutex);
    mFailParameterAccess = fail;
}

void FakeProximitySensor::setRawFifoText(const android::String8& text) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRawFifo = text;
}

MCUParams FakeProximitySensor::params() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mParams;
}

}  // namespace test
}  // namespace velto
