#ifndef VELTO_PROXDATA_H
#define VELTO_PROXDATA_H

#include <stdint.h>
#include <utils/String8.h>

namespace velto {

// One hub sample as it travels through the library: the hub's sample word
// (bits 0-13 the reading, bit 14 a hub flag) and its time stamp in ns.
// Consumers mask the reading themselves; the word is stored unchanged.
class ProxData {
public:
    static constexpr uint32_t kValueMask = 0x3FFF;
    static constexpr uint32_t kFlagMask = 0x4000;

    // printf format of one sample as dumps and logs show it: time stamp,
    // reading, flag character.
    static constexpr const char* kDumpFormat = "%lld %d %c";

    // The absence of a sample: word 0xFFFFFFFF, time stamp -1.
    static const ProxData kInvalidInstance;

    constexpr ProxData() : mData(0), mTimestampNanos(0) {}
    constexpr ProxData(uint32_t data, int64_t timestampNanos) : mData(data), mTimestampNanos(timestampNanos) {}
    ProxData(const ProxData& other) = default;

    ProxData& operator=(const ProxData& other) {
        if (this != &other) {
            mData = other.mData;
            mTimestampNanos = other.mTimestampNanos;
        }
        return *this;
    }

    void set(unsigned int data, long long timestampNanos) {
        mData = data;
        mTimestampNanos = timestampNanos;
    }

    uint32_t value() const { return mData & kValueMask; }
    bool flag() const { return (mData & kFlagMask) != 0; }

    // Appends "<time stamp> <reading> <flag 0|1>".
    void dump(android::String8& out) const;
    android::String8 toString() const;

    uint32_t mData;
    int64_t mTimestampNanos;
};

}  // namespace velto

#endif  // VELTO_PROXDATA_H
