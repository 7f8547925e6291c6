#ifndef VELTO_SIGNAL_WEARERPROFILE_H
#define VELTO_SIGNAL_WEARERPROFILE_H

#include <cstdint>
#include <string>

namespace velto {
namespace signal {

// Everything that makes one wearer's signal their own: levels, noise, the
// shapes and rates of blinks and gestures, artefacts and the hub's clock.
// Each field is drawn from a distribution (see docs/signal-model.md); the
// fields are plain so that a scenario can pin any of them.
struct WearerProfile {
    // Levels, in reading units.
    double wornBaseline = 1000;  // steady reading on the head
    double offHeadLevel = 200;   // reading off the head
    double offHeadWander = 10;   // slow wander of the off-head level (sd)
    double noiseSd = 6;          // white sensor noise
    double spikesPerHour = 40;   // isolated outliers
    double driftSd = 25;         // slow baseline drift (sd of an Ornstein-Uhlenbeck process)
    double driftTauSec = 120;    // its time constant

    // Which family of distributions the wearer was drawn from (0..2, see
    // docs/signal-model.md); informational once drawn.
    double variant = 0;

    // Spontaneous blinks.
    double blinkRatePerMin = 16;
    double blinkIntervalSpread = 0.7;  // sd of the log of the interval between blinks
    double blinkMs = 200;              // mean duration
    double blinkAmplitude = 90;        // mean rise of the reading at full closure
    double longBlinkShare = 0.1;       // slow blinks of 300..600 ms
    double veryLongBlinkShare = 0.0;   // blinks of 0.6..1.4 s
    double halfBlinkShare = 0.15;      // partial closures at 20..70 % amplitude
    double doubletShare = 0.0;         // blinks followed by another after an open gap of 100..350 ms
    double blinkPairShare = 0.05;      // blinks followed by another 0.35..0.9 s after they end (flurries)

    // Deliberate gestures.
    double winkMs = 480;            // mean wink duration
    double winkAmplitude = 200;     // mean wink rise; always stronger than a blink
    double doubleBlinkGapMs = 140;  // open time between the two blinks of a double blink
    double doubleBlinkStrength = 1.3;  // a deliberate blink's rise over a spontaneous one's
    double lookShift = 90;          // level shift while looking at the screen (signed)
    double lookTransitionMs = 150;  // time the eye takes to move up or back

    // Artefacts.
    double headMotionPerMin = 0.8;
    double headMotionAmplitude = 50;
    double slipsPerHour = 3;
    double slipShare = 0.07;     // typical slip offset as a share of the baseline
    double squintsPerMin = 0.2;  // partial closures that resemble weak winks

    // Habits while wearing (used by corpus sessions).
    double winksPerMin = 0.3;
    double doubleBlinksPerMin = 0.3;
    double looksPerMin = 1.0;
    double lookDwellSec = 3;
    double doffsPerHour = 2;

    // The hub's sampling clock.
    double clockPpm = 0;            // crystal offset of the 32 Hz clock
    double jitterMs = 0.7;          // sd of the sample-time jitter
    double sampleLossPerHour = 10;  // samples the hub skips

    // A wearer drawn from a seed; the seed also picks one of the variants.
    static WearerProfile draw(uint64_t seed);
    static constexpr int kVariants = 3;

    // Sets the field named `key` (the names of docs/signal-model.md, for
    // example "baseline" or "blink-rate"); false for an unknown key or a value
    // outside what the model can represent.
    bool set(const std::string& key, double value);

    // All fields as "key=value" pairs separated by blanks.
    std::string describe() const;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_WEARERPROFILE_H
