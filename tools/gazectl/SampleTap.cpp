#include "tools/gazectl/SampleTap.h"

#include <chrono>

namespace velto {
namespace gazectl {

void SampleTap::onProxData(const ProxData& data) {
    signal::RecordedSample s;
    s.timestampNs = data.mTimestampNanos;
    s.reading = static_cast<uint16_t>(data.mData & 0x3fff);
    s.flag = (data.mData & 0x4000) != 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mSamples.push_back(s);
        mNewestNs = std::max(mNewestNs, s.timestampNs);
    }
    mChanged.notify_all();
}

int64_t SampleTap::newestNs() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mNewestNs;
}

bool SampleTap::waitUntil(int64_t hubNs, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return mNewestNs >= hubNs; });
}

std::vector<signal::RecordedSample> SampleTap::samples() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mSamples;
}

}  // namespace gazectl
}  // namespace velto
