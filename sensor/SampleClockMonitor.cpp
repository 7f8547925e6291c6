#include "sensor/SampleClockMonitor.h"

namespace velto {

SampleClockMonitor::Change SampleClockMonitor::add(int64_t timestampNs) {
    mPreviousNs = mLatestNs;
    if (!mStarted) {
        mStarted = true;
        mLatestNs = timestampNs;
        return STEADY;
    }
    const int64_t delta = timestampNs - mLatestNs;
    if (delta <= 0 && delta >= -kBackwardStepNs) return REPEATED;
    mLatestNs = timestampNs;
    if (delta < 0) return BACKWARD;
    return delta > kForwardGapNs ? FORWARD : STEADY;
}

}  // namespace velto
