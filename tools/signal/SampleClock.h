#ifndef VELTO_SIGNAL_SAMPLECLOCK_H
#define VELTO_SIGNAL_SAMPLECLOCK_H

#include <cstdint>

#include "tools/signal/Rng.h"

namespace velto {
namespace signal {

// The hub's 32 Hz sample times: a nominal grid with a crystal offset, a small
// jitter around each grid point (it does not accumulate) and the odd sample
// that the hub skips. Times are strictly increasing.
class SampleClock {
public:
    static constexpr int64_t kNominalPeriodNs = 31250000;  // 32 Hz

    SampleClock(int64_t startNs, double clockPpm, double jitterMs, double lossPerHour,
                uint64_t seed);

    // The time of the next sample, without taking it.
    int64_t peek() const { return mNext; }
    // Takes the next sample time.
    int64_t next();

private:
    int64_t timeOf(int64_t index);

    Rng mRng;
    int64_t mStartNs;
    double mPeriodNs;
    double mJitterNs;
    double mLossPerSample;
    int64_t mIndex = 0;
    int64_t mNext = 0;
    int64_t mLast = 0;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_SAMPLECLOCK_H
