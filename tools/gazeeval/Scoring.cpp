#include "tools/gazeeval/Scoring.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velto {
namespace gazetools {

namespace {

const double kUndefined = std::numeric_limits<double>::quiet_NaN();

// Sorted, non-overlapping union of spans clipped to [from, to].
std::vector<Span> clippedUnion(std::vector<Span> spans, int64_t from, int64_t to) {
    std::vector<Span> out;
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.startNs < b.startNs; });
    for (Span s : spans) {
        s.startNs = std::max(s.startNs, from);
        s.endNs = std::min(s.endNs, to);
        if (s.endNs <= s.startNs) continue;
        if (!out.empty() && s.startNs <= out.back().endNs) {
            out.back().endNs = std::max(out.back().endNs, s.endNs);
        } else {
            out.push_back(s);
        }
    }
    return out;
}

int64_t totalNs(const std::vector<Span>& spans) {
    int64_t t = 0;
    for (const Span& s : spans) t += s.endNs - s.startNs;
    return t;
}

}  // namespace

void GestureScore::add(const GestureScore& other) {
    events += other.events;
    detections += other.detections;
    matched += other.matched;
    wearHours += other.wearHours;
    latenciesMs.insert(latenciesMs.end(), other.latenciesMs.begin(), other.latenciesMs.end());
}

double GestureScore::recall() const { return events > 0 ? static_cast<double>(matched) / events : kUndefined; }

double GestureScore::precision() const {
    return detections > 0 ? static_cast<double>(matched) / detections : kUndefined;
}

double GestureScore::f1() const {
    const double r = recall(), p = precision();
    if (std::isnan(r) || std::isnan(p)) return kUndefined;
    return r + p > 0 ? 2 * r * p / (r + p) : 0.0;
}

double GestureScore::fpPerHour() const {
    return wearHours > 0 ? (detections - matched) / wearHours : kUndefined;
}

double GestureScore::latencyPercentileMs(double p) const { return interpolatedPercentile(latenciesMs, p); }

double interpolatedPercentile(std::vector<double> v, double p) {
    if (v.empty()) return kUndefined;
    std::sort(v.begin(), v.end());
    const double pos = std::clamp(p, 0.0, 1.0) * static_cast<double>(v.size() - 1);
    const size_t lo = static_cast<size_t>(std::floor(pos));
    const size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (pos - static_cast<double>(lo));
}

double hoursInside(const std::vector<Span>& spans, int64_t from, int64_t to, const std::vector<Span>& excluded) {
    const std::vector<Span> in = clippedUnion(spans, from, to);
    const std::vector<Span> out = clippedUnion(excluded, from, to);
    // Every excluded part inside an included span is taken off once.
    int64_t overlap = 0;
    for (const Span& a : in) {
        for (const Span& b : out) {
            const int64_t lo = std::max(a.startNs, b.startNs), hi = std::min(a.endNs, b.endNs);
            if (hi > lo) overlap += hi - lo;
        }
    }
    return static_cast<double>(totalNs(in) - overlap) / 3.6e12;
}

ScoringPlan planScoring(const CorpusRecording& rec, signal::LabelKind kind, int64_t fromNs) {
    ScoringPlan plan;
    plan.fromNs = fromNs;
    plan.excluded = rec.calibrationSpans();
    for (const Span& s : rec.spansOf(kind)) {
        bool calibrating = s.startNs < fromNs;
        for (const Span& c : plan.excluded) calibrating = calibrating || c.overlaps(s);
        (calibrating ? plan.absorbing : plan.targets).push_back(s);
    }
    plan.wearHours = hoursInside(rec.wornSpans(), fromNs, rec.lastNs, plan.excluded);
    return plan;
}

void scoreDetections(const ScoringPlan& plan, const std::vector<int64_t>& detectionsNs, GestureScore* score,
                     std::vector<Outcome>* outcomes, std::vector<Span>* missed, std::vector<int>* matchedTargets,
                     std::vector<double>* targetLatencyMs) {
    std::vector<bool> used(plan.targets.size(), false);
    if (targetLatencyMs != nullptr) targetLatencyMs->assign(plan.targets.size(), kUndefined);
    score->events += static_cast<int>(plan.targets.size());
    score->wearHours += plan.wearHours;
    if (outcomes != nullptr) outcomes->assign(detectionsNs.size(), Outcome::Ignored);
    if (matchedTargets != nullptr) matchedTargets->assign(detectionsNs.size(), -1);
    for (size_t k = 0; k < detectionsNs.size(); ++k) {
        const int64_t t = detectionsNs[k];
        if (t < plan.fromNs || insideAny(plan.excluded, t)) continue;
        bool matched = false;
        for (size_t i = 0; i < plan.targets.size(); ++i) {
            const Span& l = plan.targets[i];
            if (used[i] || t < l.startNs || t > l.endNs + plan.slackNs) continue;
            used[i] = true;
            matched = true;
            if (matchedTargets != nullptr) (*matchedTargets)[k] = static_cast<int>(i);
            const double latency = static_cast<double>(t - (plan.latencyFromEnd ? l.endNs : l.startNs)) * 1e-6;
            score->latenciesMs.push_back(latency);
            if (targetLatencyMs != nullptr) (*targetLatencyMs)[i] = latency;
            break;
        }
        if (!matched) {
            bool absorbed = false;
            for (const Span& a : plan.absorbing) absorbed = absorbed || (t >= a.startNs && t <= a.endNs + plan.slackNs);
            if (absorbed) continue;
        }
        ++score->detections;
        if (matched) ++score->matched;
        if (outcomes != nullptr) (*outcomes)[k] = matched ? Outcome::Matched : Outcome::FalsePositive;
    }
    if (missed != nullptr) {
        missed->clear();
        for (size_t i = 0; i < used.size(); ++i) {
            if (!used[i]) missed->push_back(plan.targets[i]);
        }
    }
}

std::vector<Span> naturalDoublets(const std::vector<Span>& blinks) {
    std::vector<Span> out;
    for (size_t i = 1; i < blinks.size(); ++i) {
        const int64_t gap = blinks[i].startNs - blinks[i - 1].endNs;
        if (gap >= kNaturalDoubletMinGapNs && gap <= kNaturalDoubletGapNs) out.push_back({blinks[i - 1].startNs, blinks[i].endNs});
    }
    return out;
}

FalseCause falseCause(int64_t t, const std::vector<Span>& doublets, const std::vector<Span>& partialBlinks) {
    auto near = [t](const std::vector<Span>& spans) {
        for (const Span& s : spans) {
            if (t >= s.startNs && t <= s.endNs + kMatchSlackNs) return true;
        }
        return false;
    };
    if (near(doublets)) return FalseCause::NaturalDoublet;
    if (near(partialBlinks)) return FalseCause::PartialBlink;
    return FalseCause::Elsewhere;
}

}  // namespace gazetools
}  // namespace velto
