#include "tools/hubsim/LowPowerWinkDetector.h"

#include <algorithm>

namespace velto {
namespace hubsim {

namespace {
const double kBaselineWeight = 1.0 / 32;  // about one second at 32 Hz
}

void LowPowerWinkDetector::reset() {
    *this = LowPowerWinkDetector();
}

LowPowerWinkDetector::Result LowPowerWinkDetector::update(int64_t tNs, uint16_t reading,
                                                          const Params& p) {
    Result r;
    if (!mHaveBaseline) {
        mHaveBaseline = true;
        mBaseline = reading;
        return r;
    }
    const int shift = 2 - std::clamp(p.gain, 0, 2);
    const int rise = static_cast<int>(reading - mBaseline);
    // A closure opens at half the smallest wink (in raw units), but never on
    // noise alone.
    const int onset = std::max(kOnsetFloor, (p.winkMin << shift) / 2);

    if (!mInClosure) {
        if (rise >= onset) {
            mInClosure = true;
            mStartNs = tNs;
            mPeakRise = rise;
            mFired = false;
            mDisqualified = false;
        } else {
            mBaseline += kBaselineWeight * (reading - mBaseline);
            return r;
        }
    }

    mPeakRise = std::max(mPeakRise, rise);
    if (rise < onset / 2 || rise * 2 < mPeakRise) {
        // The eye is open again.
        mInClosure = false;
        return r;
    }
    if (tNs - mStartNs > kMaxDurationNs) {
        // A lasting shift (a look, a slip, the device coming off): follow it.
        mInClosure = false;
        mBaseline = reading;
        return r;
    }
    const int magnitude = mPeakRise >> shift;
    if (magnitude > p.winkMax) mDisqualified = true;
    if (!mFired && !mDisqualified && tNs - mStartNs >= kMinDurationNs && magnitude >= p.winkMin) {
        mFired = true;
        r.fire = true;
    }
    r.flag = mFired && !mDisqualified;
    return r;
}

}  // namespace hubsim
}  // namespace velto
