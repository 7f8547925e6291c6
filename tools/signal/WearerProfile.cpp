#include "tools/signal/WearerProfile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/signal/Rng.h"

namespace velto {
namespace signal {

namespace {

struct Field {
    const char* key;
    double WearerProfile::*member;
    double min;
    double max;
};

// Names for scenarios and the header of recordings, with the range each field
// may be set to.
const Field kFields[] = {
        {"baseline", &WearerProfile::wornBaseline, 0, 16383},
        {"off-level", &WearerProfile::offHeadLevel, 0, 16383},
        {"off-wander", &WearerProfile::offHeadWander, 0, 1000},
        {"noise", &WearerProfile::noiseSd, 0, 1000},
        {"spikes-per-hour", &WearerProfile::spikesPerHour, 0, 100000},
        {"drift", &WearerProfile::driftSd, 0, 5000},
        {"drift-tau", &WearerProfile::driftTauSec, 1, 100000},
        {"variant", &WearerProfile::variant, 0, WearerProfile::kVariants - 1},
        {"blink-rate", &WearerProfile::blinkRatePerMin, 0, 120},
        {"blink-spread", &WearerProfile::blinkIntervalSpread, 0, 2},
        {"blink-ms", &WearerProfile::blinkMs, 20, 2000},
        {"blink-amp", &WearerProfile::blinkAmplitude, 0, 16383},
        {"long-blink-share", &WearerProfile::longBlinkShare, 0, 1},
        {"very-long-blink-share", &WearerProfile::veryLongBlinkShare, 0, 1},
        {"half-blink-share", &WearerProfile::halfBlinkShare, 0, 1},
        {"doublet-share", &WearerProfile::doubletShare, 0, 1},
        {"blink-pair-share", &WearerProfile::blinkPairShare, 0, 1},
        {"wink-ms", &WearerProfile::winkMs, 20, 5000},
        {"wink-amp", &WearerProfile::winkAmplitude, 0, 16383},
        {"double-gap-ms", &WearerProfile::doubleBlinkGapMs, 0, 5000},
        {"double-blink-strength", &WearerProfile::doubleBlinkStrength, 0.5, 3},
        {"look-shift", &WearerProfile::lookShift, -16383, 16383},
        {"look-ms", &WearerProfile::lookTransitionMs, 1, 5000},
        {"head-motion-rate", &WearerProfile::headMotionPerMin, 0, 120},
        {"head-motion-amp", &WearerProfile::headMotionAmplitude, 0, 16383},
        {"slip-rate", &WearerProfile::slipsPerHour, 0, 3600},
        {"slip-share", &WearerProfile::slipShare, 0, 1},
        {"squint-rate", &WearerProfile::squintsPerMin, 0, 120},
        {"wink-rate", &WearerProfile::winksPerMin, 0, 60},
        {"double-blink-rate", &WearerProfile::doubleBlinksPerMin, 0, 60},
        {"look-rate", &WearerProfile::looksPerMin, 0, 60},
        {"look-dwell", &WearerProfile::lookDwellSec, 0.1, 3600},
        {"doff-rate", &WearerProfile::doffsPerHour, 0, 3600},
        {"clock-ppm", &WearerProfile::clockPpm, -2000, 2000},
        {"jitter-ms", &WearerProfile::jitterMs, 0, 10},
        {"sample-loss-per-hour", &WearerProfile::sampleLossPerHour, 0, 100000},
};

// The spread of spontaneous blinking that a variant draws from. Detectors
// trained on one family of wearers learn its quirks; three families with
// different habits keep them honest.
struct BlinkHabits {
    double rate[2];          // blinks per minute
    double spread[2];        // sd of the log interval
    double ms[2];            // mean blink duration
    double longShare[2];     // slow blinks
    double veryLongShare[2];
    double partialShare[2];
    double doubletShare[2];
    double flurryShare[2];
    double fallShare;        // wearers whose reading falls at the display
};

const BlinkHabits kHabits[WearerProfile::kVariants] = {
        // Attentive: moderate rate, few slow blinks.
        {{10, 25}, {0.5, 0.8}, {150, 280}, {0.05, 0.12}, {0, 0.01}, {0.3, 0.5}, {0.03, 0.07}, {0.03, 0.08}, 0.3},
        // Restless: frequent blinking, many partial blinks, doublets and flurries.
        {{15, 30}, {0.6, 0.9}, {130, 250}, {0.05, 0.12}, {0, 0.01}, {0.4, 0.6}, {0.07, 0.12}, {0.05, 0.12}, 0.5},
        // Tired: slower and longer blinks, some very long ones.
        {{6, 18}, {0.7, 1.0}, {200, 340}, {0.12, 0.25}, {0.01, 0.03}, {0.3, 0.5}, {0.03, 0.08}, {0.03, 0.08}, 0.4},
};

}  // namespace

WearerProfile WearerProfile::draw(uint64_t seed) {
    Rng rng(Rng::derive(seed, 0x57EA));
    WearerProfile w;
    // Baselines spread by ratio: the sensor's gain on a face varies with fit,
    // skin and lashes far more than linearly.
    w.wornBaseline = rng.logUniform(450, 2500);
    w.offHeadLevel = rng.uniform(50, 350);
    w.offHeadWander = rng.uniform(3, 20);
    w.noiseSd = (2.0 + 0.004 * w.wornBaseline) * rng.uniform(0.7, 1.5);
    w.spikesPerHour = rng.uniform(10, 100);
    w.driftSd = w.wornBaseline * rng.uniform(0.015, 0.05);
    w.driftTauSec = rng.uniform(60, 300);

    const int variant = std::min(kVariants - 1, static_cast<int>(rng.uniform() * kVariants));
    const BlinkHabits& h = kHabits[variant];
    auto in = [&rng](const double (&range)[2]) { return rng.uniform(range[0], range[1]); };
    w.variant = variant;
    w.blinkRatePerMin = in(h.rate);
    w.blinkIntervalSpread = in(h.spread);
    w.blinkMs = in(h.ms);
    w.blinkAmplitude = std::clamp(w.wornBaseline * rng.uniform(0.05, 0.12), 25.0, 260.0);
    w.longBlinkShare = in(h.longShare);
    w.veryLongBlinkShare = in(h.veryLongShare);
    w.halfBlinkShare = in(h.partialShare);
    w.doubletShare = in(h.doubletShare);
    w.blinkPairShare = in(h.flurryShare);

    // Mean closure of a deliberate wink; the lid is shut for most of it, so
    // at half height a wink lasts about four fifths of its closure.
    w.winkMs = rng.uniform(420, 650);
    w.winkAmplitude = std::clamp(w.blinkAmplitude * rng.uniform(1.7, 2.6), 80.0, 850.0);
    w.doubleBlinkGapMs = rng.uniform(80, 220);
    w.doubleBlinkStrength = rng.uniform(1.15, 1.5);
    // The reflection at the display can go either way, depending on the face
    // and the fit; the look-at-screen calibration measures only how far.
    w.lookShift = rng.logUniform(30, 300) * (rng.chance(h.fallShare) ? -1 : 1);
    w.lookTransitionMs = rng.uniform(80, 250);

    w.headMotionPerMin = rng.uniform(0.3, 1.5);
    w.headMotionAmplitude = w.wornBaseline * rng.uniform(0.02, 0.08);
    w.slipsPerHour = rng.uniform(1, 6);
    w.slipShare = rng.uniform(0.03, 0.12);
    w.squintsPerMin = rng.uniform(0.1, 0.4);

    w.winksPerMin = rng.uniform(0.15, 0.5);
    w.doubleBlinksPerMin = rng.uniform(0.15, 0.5);
    w.looksPerMin = rng.uniform(0.5, 2.0);
    w.lookDwellSec = rng.uniform(1.5, 5);
    w.doffsPerHour = rng.uniform(1, 3);

    w.clockPpm = rng.uniform(-150, 150);
    w.jitterMs = rng.uniform(0.3, 1.2);
    w.sampleLossPerHour = rng.uniform(0, 30);
    return w;
}

bool WearerProfile::set(const std::string& key, double value) {
    if (!std::isfinite(value)) return false;
    for (const Field& f : kFields) {
        if (key == f.key) {
            if (value < f.min || value > f.max) return false;
            this->*(f.member) = value;
            return true;
        }
    }
    return false;
}

std::string WearerProfile::describe() const {
    std::string out;
    char buf[64];
    for (const Field& f : kFields) {
        snprintf(buf, sizeof(buf), "%s%s=%.6g", out.empty() ? "" : " ", f.key, this->*(f.member));
        out += buf;
    }
    return out;
}

}  // namespace signal
}  // namespace velto
