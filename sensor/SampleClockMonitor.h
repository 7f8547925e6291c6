#ifndef VELTO_SAMPLE_CLOCK_MONITOR_H
#define VELTO_SAMPLE_CLOCK_MONITOR_H

#include <stdint.h>

namespace velto {

// Classifies the time stamp of each packet read from the hub against the one
// before it. Jitter, a repeated packet or one slightly out of order are
// ordinary; a clock that goes back by more than a few sample periods (a hub
// reset, a clock set back) is a step that everything keeping time state must
// hear about; a jump forward means packets were lost or the clock moved on.
class SampleClockMonitor {
public:
    enum Change {
        STEADY,    // later than the previous packet, within a few periods
        REPEATED,  // at or slightly before the previous packet
        BACKWARD,  // back by more than kBackwardStepNs: a new clock
        FORWARD,   // later by more than kForwardGapNs
    };

    // Four periods of the nominal 32 Hz: more than any duplicate or jitter.
    static const int64_t kBackwardStepNs = 125000000LL;
    static const int64_t kForwardGapNs = 125000000LL;

    // Classifies `timestampNs` and makes it the reference for the next one,
    // except that a repeated packet leaves the latest time in place.
    Change add(int64_t timestampNs);
    // The latest time stamp seen on the current clock (any value, even below
    // zero: a clock set back may pass its start).
    int64_t latest() const { return mLatestNs; }
    // The reference before the last add (what the clock stepped from).
    int64_t previous() const { return mPreviousNs; }

private:
    bool mStarted = false;
    int64_t mLatestNs = -1;
    int64_t mPreviousNs = -1;
};

}  // namespace velto

#endif  // VELTO_SAMPLE_CLOCK_MONITOR_H
