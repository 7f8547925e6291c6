#ifndef VELTO_GAZEEVAL_SCORING_H
#define VELTO_GAZEEVAL_SCORING_H

#include <cstdint>
#include <vector>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// A detection may come this long after the end of the label it matches.
constexpr int64_t kMatchSlackNs = 1000000000;

// The counts behind the figures of one gesture, summed over recordings.
struct GestureScore {
    int events = 0;      // labels scored
    int detections = 0;  // detections scored (matched or not)
    int matched = 0;     // detections that matched a label
    double wearHours = 0.0;
    std::vector<double> latenciesMs;  // detection time - label end, per match

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
};

// The plan of one gesture: its labels outside calibration spans count,
// detections inside calibration spans or before `fromNs` (the end of the
// gesture's calibration, for gestures that need one) are ignored, and so are
// labels that start before `fromNs`.
ScoringPlan planScoring(const CorpusRecording& rec, signal::LabelKind kind, int64_t fromNs);

// Matches detections (sorted by time) to labels: each detection, in order,
// matches the earliest unmatched target whose span, extended by
// kMatchSlackNs after its end, contains it. A detection that matches no target
// but would match an absorbing label is not counted; any other is a false
// positive.
// When `outcomes` is given it receives one entry per detection, `missed` the
// targets that no detection matched, and `matchedTargets` per detection the
// index in plan.targets of the label it matched (-1 for none).
enum class Outcome { Matched, FalsePositive, Ignored };
void scoreDetections(const ScoringPlan& plan, const std::vector<int64_t>& detectionsNs, GestureScore* score,
                     std::vector<Outcome>* outcomes = nullptr, std::vector<Span>* missed = nullptr,
                     std::vector<int>* matchedTargets = nullptr);

// The p-quantile (0..1) of the values, interpolated linearly between order
// statistics; NaN for no values.
double interpolatedPercentile(std::vector<double> values, double p);

// Length in hours of the parts of `spans` inside [from, to] and outside
// every span of `excluded`.
double hoursInside(const std::vector<Span>& spans, int64_t from, int64_t to, const std::vector<Span>& excluded);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_SCORING_H
