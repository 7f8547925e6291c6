#include "proxdata/ProxDataBuffer.h"

#include <log/log.h>

#include <algorithm>

namespace velto {

ProxDataBuffer::ProxDataBuffer(unsigned int capacity) : mRecords(capacity, GazeRecord::kInvalidInstance) {}

void ProxDataBuffer::addPacket(const ProxData& data, int detectorResponse) {
    mRecords.add(GazeRecord(data, detectorResponse));
}

void ProxDataBuffer::addMarkerPacket() { mRecords.add(GazeRecord::kInvalidInstance); }

const GazeRecord& ProxDataBuffer::getRecordAtDelay(int delay) const {
    if (delay < 0) return GazeRecord::kInvalidInstance;
    return mRecords.getAtDelay(static_cast<unsigned int>(delay));
}

void ProxDataBuffer::dump(android::String8& out) const {
    const int count = getNumPackets();
    out.appendFormat("Dumping %d prox data packets...\n", count);
    for (int d = 0; d < count; ++d) {
        getRecordAtDelay(d).dump(out);
        out.append("\n");
    }
    out.append("Done dumping prox data packets.");
}

void ProxDataBuffer::log(int fromDelay, int toDelay) const {
    const int from = std::max(fromDelay, 0);
    const int to = std::min(toDelay, getNumPackets());
    android::String8 text("Led0: ");
    for (int d = from; d < to; ++d) text.appendFormat("%u ", getRecordAtDelay(d).mProxData.mData & ProxData::kValueMask);
    text.append("\nTimestamps (ns): ");
    for (int d = from; d < to; ++d) {
        text.appendFormat("%lld ", static_cast<long long>(getRecordAtDelay(d).mProxData.mTimestampNanos));
    }
    __android_log_print(ANDROID_LOG_INFO, "GazeService:ProxDataBuffer", "%s", text.string());
}

}  // namespace velto
