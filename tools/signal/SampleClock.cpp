#include "tools/signal/SampleClock.h"

#include <cmath>

namespace velto {
namespace signal {

namespace {
// Jitter stays well inside half a period so samples never swap places.
const double kMaxJitterNs = 4e6;
const double kSamplesPerHour = 3600.0 * 32.0;
}  // namespace

SampleClock::SampleClock(int64_t startNs, double clockPpm, double jitterMs, double lossPerHour,
                         uint64_t seed)
    : mRng(seed),
      mStartNs(startNs),
      mPeriodNs(kNominalPeriodNs * (1.0 + clockPpm * 1e-6)),
      mJitterNs(jitterMs * 1e6),
      mLossPerSample(lossPerHour / kSamplesPerHour) {
    mLast = startNs - kNominalPeriodNs;
    mNext = timeOf(mIndex);
}

int64_t SampleClock::timeOf(int64_t index) {
    double jitter = mJitterNs > 0 ? mRng.normal(0, mJitterNs) : 0.0;
    if (jitter > kMaxJitterNs) jitter = kMaxJitterNs;
    if (jitter < -kMaxJitterNs) jitter = -kMaxJitterNs;
    int64_t t = mStartNs + static_cast<int64_t>(std::llround(index * mPeriodNs + jitter));
    if (t <= mLast) t = mLast + 1;
    return t;
}

int64_t SampleClock::next() {
    const int64_t taken = mNext;
    mLast = taken;
    ++mIndex;
    // A skipped sample leaves a gap of two periods, as when the hub misses a
    // conversion.
    if (mLossPerSample > 0 && mRng.chance(mLossPerSample)) ++mIndex;
    mNext = timeOf(mIndex);
    return taken;
}

}  // namespace signal
}  // namespace velto
