#ifndef VELTO_GAZEEVAL_SCORING_H
#define VELTO_GAZEEVAL_SCORING_H

#include <cstdint>
#include <vector>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// A detection may come this long after the end of the label it matches: a
// double blink or a wink is reported once it is over.
constexpr int64_t kMatchSlackNs = 1000000000;
// A look at the display is reported while it lasts; once the wearer has looked
// back the event is wrong, not late. The slack covers the movement back.
constexpr int64_t kLookMatchSlackNs = 250000000;

// The counts behind the figures of one gesture, summed over recordings.
struct GestureScore {
    int events = 0;      // labels scored
    int detections = 0;  // detections scored (matched or not)
    int matched = 0;     // detections that matched a label
    double wearHours = 0.0;
    std::vector<double> latenciesMs;  // detection time - label start (or end, see ScoringPlan), per match

    void add(const GestureScore& other);

    // Each figure is NaN where it is undefined (no events, no detections, no
    // wear time, no match).
    double recall() const;
    double precision() const;
    double f1() const;
    double fpPerHour() const;
    // Linear interpolation between the order statistics of the latencies.
    double latencyPercentileMs(double p) const;
};

// What to score of one gesture in one recording.
struct ScoringPlan {
    std::vector<Span> targets;    // labels that count as events
    std::vector<Span> absorbing;  // labels that are not scored: a detection matching one is ignored
    int64_t fromNs = 0;           // detections before this are ignored
    std::vector<Span> excluded;   // detections inside these are ignored
    double wearHours = 0.0;       // the scored time on the head
    int64_t slackNs = kMatchSlackNs;  // how long after a target's end a detection still matches it
    bool latencyFromEnd = false;      // latency from the target's end instead of its start
};

// The plan of one gesture: its labels outside calibration spans count,
// detections inside calibration spans or before `fromNs` (the end of the
// gesture's calibration, for gestures that need one) are ignored, and so are
// labels that start before `fromNs`.
ScoringPlan planScoring(const CorpusRecording& rec, signal::LabelKind kind, int64_t fromNs);

// Matches detections (sorted by time) to labels: each detection, in order,
// matches the earliest unmatched target whose span, extended by the plan's
// slack after its end, contains it. A detection that matches no target
// but would match an absorbing label is not counted; any other is a false
// positive.
// When `outcomes` is given it receives one entry per detection, `missed` the
// targets that no detection matched, `matchedTargets` per detection the
// index in plan.targets of the label it matched (-1 for none), and
// `targetLatencyMs` one entry per target: its latency, or NaN when nothing
// matched it.
enum class Outcome { Matched, FalsePositive, Ignored };
void scoreDetections(const ScoringPlan& plan, const std::vector<int64_t>& detectionsNs, GestureScore* score,
                     std::vector<Outcome>* outcomes = nullptr, std::vector<Span>* missed = nullptr,
                     std::vector<int>* matchedTargets = nullptr, std::vector<double>* targetLatencyMs = nullptr);

// Two spontaneous blinks whose closures are at most this far apart (from the
// end of the first to the start of the second) make a natural doublet, the
// pair that real eyes make many times an hour and that must not pass for a
// deliberate double blink. Closures less than the shorter gap apart are one
// closure whose labelling flickered.
constexpr int64_t kNaturalDoubletGapNs = 400000000;
constexpr int64_t kNaturalDoubletMinGapNs = 65000000;

// Why a false double blink fired, checked in this order.
enum class FalseCause { NaturalDoublet, PartialBlink, Elsewhere };

// Natural doublets of the given blinks (sorted by start): the span from the
// first closure's start to the second's end.
std::vector<Span> naturalDoublets(const std::vector<Span>& blinks);
// A detection at `t` lies on a doublet or a partial blink when it falls
// between its start and its end plus kMatchSlackNs.
FalseCause falseCause(int64_t t, const std::vector<Span>& doublets, const std::vector<Span>& partialBlinks);

// The p-quantile (0..1) of the values, interpolated linearly between order
// statistics; NaN for no values.
double interpolatedPercentile(std::vector<double> values, double p);

// Length in hours of the parts of `spans` inside [from, to] and outside
// every span of `excluded`.
double hoursInside(const std::vector<Span>& spans, int64_t from, int64_t to, const std::vector<Span>& excluded);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_SCORING_H
