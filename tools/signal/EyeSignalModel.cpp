#include "tools/signal/EyeSignalModel.h"

#include <algorithm>
#include <cmath>

namespace velto {
namespace signal {

namespace {

const double kPi = 3.141592653589793;
const int64_t kMs = 1000000;
const int64_t kSec = 1000000000;
const double kSamplesPerHour = 3600.0 * 32.0;

// Lid closures of spontaneous blinks keep this far from deliberate gestures, so
// that a label never hides another gesture's closure.
const int64_t kGestureMarginNs = 400 * kMs;

double smooth(double u) {
    if (u <= 0) return 0;
    if (u >= 1) return 1;
    return 0.5 - 0.5 * std::cos(kPi * u);
}

int64_t msToNs(double ms) {
    return static_cast<int64_t>(std::llround(ms * 1e6));
}

// Shape of one closure, 0..1 over u in [0, 1]: the lid comes down quickly,
// may stay closed, and opens more slowly.
double closureShape(double u, double rise, double hold) {
    if (u <= 0 || u >= 1) return 0;
    if (u < rise) return smooth(u / rise);
    if (u < rise + hold) return 1;
    const double fall = 1 - rise - hold;
    return 1 - smooth((u - rise - hold) / fall);
}

}  // namespace

EyeSignalModel::EyeSignalModel(const WearerProfile& wearer, uint64_t seed, int64_t startNs,
                               bool worn)
    : mWearer(wearer),
      mNoiseRng(Rng::derive(seed, 1)),
      mHabitRng(Rng::derive(seed, 2)),
      mEventRng(Rng::derive(seed, 3)),
      mLastNs(startNs - 1),
      mWornBefore(worn),
      mOffLevelBefore(wearer.offHeadLevel) {
    mDrift = mNoiseRng.normal(0, mWearer.driftSd);
    mNextBlinkNs = startNs + blinkInterval(0);
    auto firstOf = [&](double perMinute) -> int64_t {
        if (perMinute <= 0) return INT64_MAX;
        return startNs + static_cast<int64_t>(mHabitRng.exponential(60.0 / perMinute) * kSec);
    };
    mNextMotionNs = firstOf(mWearer.headMotionPerMin);
    mNextSlipNs = firstOf(mWearer.slipsPerHour / 60.0);
    mNextSquintNs = firstOf(mWearer.squintsPerMin);
    mNextPruneNs = startNs + 10 * kSec;
}

int64_t EyeSignalModel::blinkInterval(int64_t lastNs) {
    if (mWearer.blinkRatePerMin <= 0) return INT64_MAX / 2;
    // Now and then the lid closes again right after it opened (a doublet) or
    // a few blinks follow each other within a second (a flurry); otherwise
    // intervals are log-normal around the wearer's mean: positively skewed,
    // with a short refractory time.
    if (lastNs > 0 && mHabitRng.chance(mWearer.doubletShare)) {
        return lastNs + static_cast<int64_t>(mHabitRng.uniform(0.10, 0.35) * kSec);
    }
    if (mHabitRng.chance(mWearer.blinkPairShare)) {
        return lastNs + static_cast<int64_t>(mHabitRng.uniform(0.35, 0.9) * kSec);
    }
    const double mean = 60.0 / mWearer.blinkRatePerMin;
    const double sd = mWearer.blinkIntervalSpread;
    const double s = std::exp(std::log(mean) - sd * sd / 2 + sd * mHabitRng.normal());
    return std::max(lastNs + 400 * kMs, static_cast<int64_t>(std::max(0.5, s) * kSec));
}

EyeSignalModel::WearState EyeSignalModel::wearStateAt(int64_t t) const {
    WearState s{mWornBefore ? 1.0 : 0.0, false, mOffLevelBefore};
    for (const WearChange& c : mWear) {
        if (t < c.start) break;
        if (!c.toWorn) s.offLevel = c.offLevel;
        if (t < c.end) {
            const double u = smooth(static_cast<double>(t - c.start) / (c.end - c.start));
            s.weight = c.toWorn ? u : 1 - u;
            s.moving = true;
            return s;
        }
        s.weight = c.toWorn ? 1.0 : 0.0;
    }
    return s;
}

bool EyeSignalModel::wornAt(int64_t t) const {
    const WearState s = wearStateAt(t);
    return !s.moving && s.weight > 0.5;
}

bool EyeSignalModel::fullyWornDuring(int64_t from, int64_t to) const {
    if (!wornAt(from)) return false;
    for (const WearChange& c : mWear) {
        if (c.start <= to && c.end >= from) return false;
    }
    return true;
}

bool EyeSignalModel::eyeBusy(int64_t from, int64_t to) const {
    for (const LidClosure& l : mLids) {
        if (l.deliberate && l.start < to && l.end > from) return true;
    }
    return false;
}

double EyeSignalModel::pendingSlipOffset() const {
    double total = mSlipBase;
    for (const Slip& s : mSlips) total += s.delta;
    return total;
}

void EyeSignalModel::addLid(int64_t start, int64_t duration, double amplitude, double rise,
                            double hold, double squeeze, bool deliberate) {
    mLids.push_back({start, start + duration, amplitude, rise, hold, squeeze, deliberate});
}

void EyeSignalModel::addLabel(int64_t start, int64_t end, LabelKind kind) {
    mLabels.push_back({start, end, kind});
}

bool EyeSignalModel::schedule(const SignalEvent& e, std::string* error, Label* span) {
    auto fail = [&](const char* why) {
        if (error != nullptr) *error = why;
        return false;
    };
    if (e.startNs <= mLastNs) return fail("starts before the last sample");
    if (e.durationNs < 0) return fail("negative duration");
    Rng& r = mEventRng;
    const WearerProfile& w = mWearer;
    const bool given = e.durationNs > 0;
    const bool hasAmount = !std::isnan(e.amount);
    const int64_t s = e.startNs;
    Label main{s, s, LabelKind::Blink};

    switch (e.kind) {
        case SignalEventKind::Don:
        case SignalEventKind::Doff: {
            const bool toWorn = e.kind == SignalEventKind::Don;
            if (!mWear.empty() && s < mWear.back().end) return fail("overlaps another don or doff");
            const WearState st = wearStateAt(s);
            if ((st.weight > 0.5) == toWorn) {
                return fail(toWorn ? "the device is already on" : "the device is already off");
            }
            if (!toWorn) {
                for (const LidClosure& l : mLids) {
                    if (l.deliberate && l.end > s) return fail("a gesture is still scheduled");
                }
            }
            WearChange c{};
            c.start = s;
            c.toWorn = toWorn;
            const double dur = given ? e.durationNs
                                     : (toWorn ? r.uniform(0.4, 1.2) : r.uniform(0.3, 1.0)) * kSec;
            c.end = s + static_cast<int64_t>(dur);
            c.offLevel = toWorn ? st.offLevel : (hasAmount ? e.amount : w.offHeadLevel);
            c.wobble = 0.08 * w.wornBaseline * r.uniform(0.5, 1.5);
            c.wobbleHz = r.uniform(2, 5);
            // Taking the device off, the hand or the cheek passes close to the
            // sensor half of the time.
            if (!toWorn && r.chance(0.5)) {
                c.spike = w.wornBaseline * r.uniform(0.3, 0.8);
                c.spikeStart = s + static_cast<int64_t>(dur * r.uniform(0.2, 0.6));
                c.spikeEnd = c.spikeStart + msToNs(r.uniform(100, 300));
            }
            mWear.push_back(c);
            main = {c.start, c.end, toWorn ? LabelKind::Don : LabelKind::Doff};
            addLabel(main.startNs, main.endNs, main.kind);
            break;
        }
        case SignalEventKind::Blink:
        case SignalEventKind::Wink:
        case SignalEventKind::Squint:
        case SignalEventKind::DoubleBlink: {
            int64_t dur;
            if (e.kind == SignalEventKind::Blink) {
                dur = given ? e.durationNs
                            : msToNs(r.clampedNormal(w.blinkMs, 0.2 * w.blinkMs, 100, 400));
            } else if (e.kind == SignalEventKind::Wink) {
                dur = given ? e.durationNs
                            : msToNs(r.clampedNormal(w.winkMs, 0.12 * w.winkMs, 340, 800));
            } else if (e.kind == SignalEventKind::Squint) {
                dur = given ? e.durationNs : msToNs(r.uniform(500, 1500));
            } else {
                // A deliberate blink is a little longer than the wearer's
                // spontaneous ones.
                dur = given ? e.durationNs
                            : msToNs(2 * std::clamp(w.blinkMs * r.uniform(1.0, 1.25), 150.0, 380.0) +
                                     r.clampedNormal(w.doubleBlinkGapMs, 0.25 * w.doubleBlinkGapMs,
                                                     40, 400));
            }
            if (!fullyWornDuring(s, s + dur)) return fail("the device is not on the head then");
            if (eyeBusy(s, s + dur)) return fail("overlaps another gesture");
            if (e.kind == SignalEventKind::Blink) {
                const double amp = hasAmount
                                           ? e.amount
                                           : w.blinkAmplitude * r.clampedNormal(1, 0.15, 0.6, 1.4);
                addLid(s, dur, amp, 0.3, 0.1, 0, false);
                main = {s, s + dur, LabelKind::Blink};
            } else if (e.kind == SignalEventKind::Wink) {
                // Deliberate winks of one wearer are alike in strength; the lid
                // shuts fast, is held shut (the squeeze adds a ripple) and
                // opens more slowly.
                const double amp =
                        hasAmount ? e.amount : w.winkAmplitude * r.clampedNormal(1, 0.07, 0.8, 1.2);
                addLid(s, dur, amp, r.uniform(0.10, 0.14), r.uniform(0.52, 0.62),
                       r.uniform(0.02, 0.08), true);
                main = {s, s + dur, LabelKind::Wink};
            } else if (e.kind == SignalEventKind::Squint) {
                const double amp = hasAmount ? e.amount : w.winkAmplitude * r.uniform(0.25, 0.45);
                addLid(s, dur, amp, 0.3, 0.4, 0.03, true);
                main = {s, s + dur, LabelKind::Squint};
            } else {
                // Two firm blinks around a short open gap: each shuts the lid
                // fully, a little harder and longer than a spontaneous blink.
                const double gapShare = std::clamp(w.doubleBlinkGapMs * 1e6 / dur, 0.1, 0.6);
                const int64_t gap = static_cast<int64_t>(dur * r.uniform(0.8, 1.2) * gapShare);
                const int64_t first = static_cast<int64_t>((dur - gap) * r.uniform(0.45, 0.55));
                const int64_t second = dur - gap - first;
                const double amp = hasAmount ? e.amount
                                             : w.blinkAmplitude * w.doubleBlinkStrength * r.uniform(0.9, 1.1);
                addLid(s, first, amp * r.uniform(0.93, 1.07), 0.25, r.uniform(0.15, 0.3), 0, true);
                addLid(s + first + gap, second, amp * r.uniform(0.93, 1.07), 0.25, r.uniform(0.15, 0.3), 0, true);
                main = {s, s + dur, LabelKind::DoubleBlink};
            }
            addLabel(main.startNs, main.endNs, main.kind);
            break;
        }
        case SignalEventKind::Look: {
            const int64_t dwell =
                    given ? e.durationNs
                          : static_cast<int64_t>(w.lookDwellSec * r.uniform(0.5, 1.5) * kSec);
            const double tr = std::min(
                    r.clampedNormal(w.lookTransitionMs, 0.2 * w.lookTransitionMs, 50, 400) * 1e6,
                    dwell * 0.5);
            const int64_t away = s + dwell;
            const int64_t end = away + static_cast<int64_t>(tr);
            if (!fullyWornDuring(s, end)) return fail("the device is not on the head then");
            for (const LookShift& l : mLooks) {
                if (l.start < end && l.end > s) return fail("overlaps another look");
            }
            const double shift =
                    hasAmount ? e.amount : w.lookShift * r.clampedNormal(1, 0.12, 0.7, 1.3);
            mLooks.push_back({s, away, end, shift, tr, r.uniform(0, 2 * kPi)});
            main = {s, away, LabelKind::LookAtScreen};
            addLabel(s, away, LabelKind::LookAtScreen);
            addLabel(away, end, LabelKind::LookAwayFromScreen);
            break;
        }
        case SignalEventKind::HeadMotion: {
            const int64_t dur =
                    given ? e.durationNs : static_cast<int64_t>(r.uniform(0.5, 4) * kSec);
            Motion m{};
            m.start = s;
            m.end = s + dur;
            m.amplitude = hasAmount ? e.amount : w.headMotionAmplitude * r.uniform(0.5, 1.5);
            double sum = 0;
            for (int k = 0; k < 3; ++k) {
                m.freq[k] = r.uniform(0.8, 4.0);
                m.phase[k] = r.uniform(0, 2 * kPi);
                m.weight[k] = r.uniform(0.2, 1.0);
                sum += m.weight[k];
            }
            for (double& wk : m.weight) wk /= sum;
            mMotions.push_back(m);
            main = {m.start, m.end, LabelKind::HeadMotion};
            addLabel(main.startNs, main.endNs, main.kind);
            break;
        }
        case SignalEventKind::Slip:
        case SignalEventKind::Adjust: {
            double delta;
            if (e.kind == SignalEventKind::Adjust) {
                delta = -pendingSlipOffset();
            } else if (hasAmount) {
                delta = e.amount;
            } else {
                delta = w.wornBaseline * w.slipShare * r.uniform(0.5, 1.5) *
                        (r.chance(0.5) ? 1 : -1);
            }
            const int64_t dur =
                    given ? e.durationNs : static_cast<int64_t>(r.uniform(0.3, 1.5) * kSec);
            mSlips.push_back({s, s + dur, delta});
            main = {s, s + dur, LabelKind::Slip};
            addLabel(main.startNs, main.endNs, main.kind);
            break;
        }
    }
    if (span != nullptr) *span = main;
    return true;
}

int64_t EyeSignalModel::spawnBlink(int64_t t) {
    Rng& r = mHabitRng;
    const WearerProfile& w = mWearer;
    double ms = r.clampedNormal(w.blinkMs, 0.2 * w.blinkMs, 100, 400);
    double amp = w.blinkAmplitude * r.clampedNormal(1, 0.15, 0.6, 1.4);
    double rise = 0.3, hold = 0.1;
    // Slow, very long and partial blinks are what make a blink look like
    // part of a gesture. Slow blinks open more slowly still.
    if (r.chance(w.veryLongBlinkShare)) {
        ms = r.uniform(600, 1400);
        rise = 0.15;
        hold = r.uniform(0.3, 0.6);
    } else if (r.chance(w.longBlinkShare)) {
        ms = r.uniform(300, 600);
        rise = 0.2;
        hold = 0.15;
    }
    const bool partial = r.chance(w.halfBlinkShare);
    if (partial) amp *= r.uniform(0.2, 0.7);
    const int64_t dur = msToNs(ms);
    if (!fullyWornDuring(t, t + dur)) return 0;
    if (eyeBusy(t - kGestureMarginNs, t + dur + kGestureMarginNs)) return 0;
    addLid(t, dur, amp, rise, hold, 0, false);
    addLabel(t, t + dur, LabelKind::Blink);
    if (partial) addLabel(t, t + dur, LabelKind::PartialBlink);
    return dur;
}

void EyeSignalModel::runSpontaneous(int64_t t) {
    while (t >= mNextBlinkNs) {
        const int64_t at = mNextBlinkNs;
        const int64_t dur = mSpontaneous ? spawnBlink(at) : 0;
        mNextBlinkNs = at + blinkInterval(dur);
    }
    auto poisson = [&](int64_t* next, double perMinute) {
        const int64_t at = *next;
        *next = perMinute > 0
                        ? at + static_cast<int64_t>(mHabitRng.exponential(60.0 / perMinute) * kSec)
                        : INT64_MAX;
        return at;
    };
    while (t >= mNextMotionNs) {
        const int64_t at = poisson(&mNextMotionNs, mWearer.headMotionPerMin);
        if (mSpontaneous && wornAt(at))
            schedule({SignalEventKind::HeadMotion, at, 0, NAN}, nullptr);
    }
    while (t >= mNextSquintNs) {
        const int64_t at = poisson(&mNextSquintNs, mWearer.squintsPerMin);
        if (mSpontaneous && !eyeBusy(at - kGestureMarginNs, at + 2 * kSec)) {
            schedule({SignalEventKind::Squint, at, 0, NAN}, nullptr);
        }
    }
    while (t >= mNextSlipNs) {
        const int64_t at = poisson(&mNextSlipNs, mWearer.slipsPerHour / 60.0);
        if (mSpontaneous && wornAt(at) && schedule({SignalEventKind::Slip, at, 0, NAN}, nullptr) &&
            mAdjustNs < 0) {
            // Sooner or later the wearer pushes the device back, with a jolt.
            mAdjustNs = at + static_cast<int64_t>(mHabitRng.uniform(60, 600) * kSec);
        }
    }
    if (mAdjustNs >= 0 && t >= mAdjustNs) {
        const int64_t at = mAdjustNs;
        mAdjustNs = -1;
        if (wornAt(at)) {
            schedule({SignalEventKind::Adjust, at, 0, NAN}, nullptr);
            schedule({SignalEventKind::HeadMotion, at, 0, NAN}, nullptr);
        }
    }
}

double EyeSignalModel::closureAt(int64_t t) const {
    // The lid cannot close further than shut: overlapping closures take the
    // stronger, they do not add.
    double v = 0;
    for (const LidClosure& l : mLids) {
        if (t <= l.start || t >= l.end) continue;
        const double u = static_cast<double>(t - l.start) / (l.end - l.start);
        double c = closureShape(u, l.riseShare, l.holdShare);
        if (l.squeeze > 0 && c >= 1)
            c += l.squeeze * std::sin(2 * kPi * 6.0 * (t - l.start) * 1e-9);
        v = std::max(v, l.amplitude * c);
    }
    return v;
}

double EyeSignalModel::lookAt(int64_t t) const {
    double v = 0;
    for (const LookShift& l : mLooks) {
        if (t <= l.start || t >= l.end) continue;
        double k;
        if (t < l.start + l.transitionNs) {
            k = smooth((t - l.start) / l.transitionNs);
        } else if (t < l.away) {
            // The eye does not hold perfectly still on the display.
            k = 1 + 0.04 * std::sin(2 * kPi * 0.7 * (t - l.start) * 1e-9 + l.tremorPhase);
        } else {
            k = 1 - smooth((t - l.away) / l.transitionNs);
        }
        v += l.shift * k;
    }
    return v;
}

double EyeSignalModel::motionAt(int64_t t) const {
    double v = 0;
    for (const Motion& m : mMotions) {
        if (t <= m.start || t >= m.end) continue;
        const double u = static_cast<double>(t - m.start) / (m.end - m.start);
        const double window = 0.5 - 0.5 * std::cos(2 * kPi * u);
        const double sec = (t - m.start) * 1e-9;
        double wave = 0;
        for (int k = 0; k < 3; ++k)
            wave += m.weight[k] * std::sin(2 * kPi * m.freq[k] * sec + m.phase[k]);
        v += m.amplitude * window * wave;
    }
    return v;
}

double EyeSignalModel::slipAt(int64_t t) const {
    double v = mSlipBase;
    for (const Slip& s : mSlips) {
        if (t <= s.start) continue;
        v += s.delta * smooth(static_cast<double>(t - s.start) / (s.end - s.start));
    }
    return v;
}

double EyeSignalModel::handlingAt(int64_t t) const {
    double v = 0;
    for (const WearChange& c : mWear) {
        if (t <= c.start || t >= c.end + 200 * kMs) continue;
        if (t < c.end) {
            const double u = static_cast<double>(t - c.start) / (c.end - c.start);
            v += c.wobble * std::sin(kPi * u) *
                 std::sin(2 * kPi * c.wobbleHz * (t - c.start) * 1e-9);
        }
        if (c.spike > 0 && t > c.spikeStart && t < c.spikeEnd) {
            v += c.spike * std::sin(kPi * (t - c.spikeStart) /
                                    static_cast<double>(c.spikeEnd - c.spikeStart));
        }
    }
    return v;
}

void EyeSignalModel::prune(int64_t t) {
    // Keep a margin so that a look-back (wornAt for a just-passed time) still
    // sees the changes around it.
    const int64_t horizon = t - 5 * kSec;
    auto ended = [horizon](int64_t end) { return end < horizon; };
    mLids.erase(std::remove_if(mLids.begin(), mLids.end(),
                               [&](const LidClosure& l) { return ended(l.end); }),
                mLids.end());
    mLooks.erase(std::remove_if(mLooks.begin(), mLooks.end(),
                                [&](const LookShift& l) { return ended(l.end); }),
                 mLooks.end());
    mMotions.erase(std::remove_if(mMotions.begin(), mMotions.end(),
                                  [&](const Motion& m) { return ended(m.end); }),
                   mMotions.end());
    for (auto it = mSlips.begin(); it != mSlips.end();) {
        if (ended(it->end)) {
            mSlipBase += it->delta;
            it = mSlips.erase(it);
        } else {
            ++it;
        }
    }
    while (!mWear.empty() && ended(mWear.front().end + 200 * kMs)) {
        mWornBefore = mWear.front().toWorn;
        mOffLevelBefore = mWear.front().offLevel;
        mWear.erase(mWear.begin());
    }
}

uint16_t EyeSignalModel::sample(int64_t t) {
    if (t <= mLastNs) t = mLastNs + 1;
    const double dt = (t - mLastNs) * 1e-9;
    // Spontaneous events due by now start after the previous sample, so they
    // are scheduled before the clock moves on.
    runSpontaneous(t);
    mLastNs = t;
    if (t >= mNextPruneNs) {
        prune(t);
        mNextPruneNs = t + 10 * kSec;
    }

    // Drift and the off-head wander are Ornstein-Uhlenbeck processes: they
    // wander slowly and return to their mean.
    Rng& n = mNoiseRng;
    const double tau = mWearer.driftTauSec;
    const double step = std::min(dt, tau);
    mDrift += -mDrift * step / tau + mWearer.driftSd * std::sqrt(2 * step / tau) * n.normal();
    mOffWander += -mOffWander * std::min(dt, 30.0) / 30.0 +
                  mWearer.offHeadWander * std::sqrt(2 * std::min(dt, 30.0) / 30.0) * n.normal();

    const WearState st = wearStateAt(t);
    const double off = st.offLevel + mOffWander;
    double v = off;
    if (st.weight > 0) {
        const double worn =
                mWearer.wornBaseline + mDrift + slipAt(t) + closureAt(t) + lookAt(t) + motionAt(t);
        v += st.weight * (worn - off);
    }
    v += handlingAt(t);
    v += n.normal(0, mWearer.noiseSd);
    if (n.chance(mWearer.spikesPerHour / kSamplesPerHour)) {
        v += (n.chance(0.5) ? 1 : -1) * n.uniform(30, 150);
    }
    const long q = std::lround(v);
    return static_cast<uint16_t>(std::clamp(q, 0L, 16383L));
}

void EyeSignalModel::takeLabels(int64_t t, std::vector<Label>* out) {
    std::vector<Label> keep;
    std::vector<Label> done;
    for (const Label& l : mLabels) (l.endNs <= t ? done : keep).push_back(l);
    std::sort(done.begin(), done.end(), labelBefore);
    out->insert(out->end(), done.begin(), done.end());
    mLabels.swap(keep);
}

}  // namespace signal
}  // namespace velto
