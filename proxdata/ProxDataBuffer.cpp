#include "proxdata/ProxDataBuffer.h"

#include <log/log.h>

#include <stdio.h>

#include <algorithm>
#include <vector>

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
    const size_t count = to > from ? static_cast<size_t>(to - from) : 0;
    // The wink module logs its 52-sample window at the end of every
    // validation. One buffer sized for the longest text (a 14-bit value of at
    // most 5 digits and a 64-bit time stamp of at most 20 characters, each
    // with its blank) replaces a reallocation and a double format per number.
    static const char kValues[] = "Led0: ";
    static const char kTimes[] = "\nTimestamps (ns): ";
    std::vector<char> text(sizeof(kValues) + sizeof(kTimes) + count * (6 + 21));
    char* p = text.data();
    char* const end = p + text.size();
    p += snprintf(p, static_cast<size_t>(end - p), "%s", kValues);
    for (int d = from; d < to; ++d) {
        p += snprintf(p, static_cast<size_t>(end - p), "%u ", getRecordAtDelay(d).mProxData.mData & ProxData::kValueMask);
    }
    p += snprintf(p, static_cast<size_t>(end - p), "%s", kTimes);
    for (int d = from; d < to; ++d) {
        p += snprintf(p, static_cast<size_t>(end - p), "%lld ",
                      static_cast<long long>(getRecordAtDelay(d).mProxData.mTimestampNanos));
    }
    __android_log_print(ANDROID_LOG_INFO, "GazeService:ProxDataBuffer", "%s", text.data());
}

}  // namespace velto
