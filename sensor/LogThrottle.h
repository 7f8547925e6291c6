#ifndef VELTO_LOG_THROTTLE_H
#define VELTO_LOG_THROTTLE_H

#include <stdint.h>

namespace velto {

// Lets one log line through per period, so that a fault that repeats on every
// turn of a loop cannot flood the log. Counts the lines it held back.
class LogThrottle {
public:
    explicit LogThrottle(int64_t periodMs = 1000) : mPeriodMs(periodMs) {}

    // True when a line may be logged at `nowMs`.
    bool allow(int64_t nowMs) {
        if (mLastMs >= 0 && nowMs - mLastMs < mPeriodMs) {
            ++mSuppressed;
            return false;
        }
        mLastMs = nowMs;
        return true;
    }
    // Lines held back since the last one let through, and forgets them.
    int takeSuppressed() {
        const int n = mSuppressed;
        mSuppressed = 0;
        return n;
    }
    // The next line goes through whatever the time.
    void clear() {
        mLastMs = -1;
        mSuppressed = 0;
    }

private:
    int64_t mPeriodMs;
    int64_t mLastMs = -1;
    int mSuppressed = 0;
};

}  // namespace velto

#endif  // VELTO_LOG_THROTTLE_H
