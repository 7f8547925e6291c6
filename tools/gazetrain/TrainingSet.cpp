#include "tools/gazetrain/TrainingSet.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/gazeeval/Replay.h"

namespace velto {
namespace gazetools {

namespace {

using signal::Label;
using signal::LabelKind;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
// The look-at-screen module's largest look magnitude.
constexpr float kMaxLookMagnitude = 500.0f;

double ms(int64_t ns) { return static_cast<double>(ns) * 1e-6; }

// Index range [first, last) of the grid values whose time lies in [from, to].
std::pair<size_t, size_t> indexRange(const GridStream& g, double from, double to) {
    const auto a = std::lower_bound(g.timesMs.begin(), g.timesMs.end(), from);
    const auto b = std::upper_bound(a, g.timesMs.end(), to);
    return {static_cast<size_t>(a - g.timesMs.begin()), static_cast<size_t>(b - g.timesMs.begin())};
}

// Median of the grid values in [from, to]; NaN when there are none.
double medianBetween(const GridStream& g, double from, double to) {
    const auto r = indexRange(g, from, to);
    if (r.first >= r.second) return std::nan("");
    std::vector<float> v(g.values.begin() + static_cast<long>(r.first), g.values.begin() + static_cast<long>(r.second));
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

// See TrainingStream::gate.
Interval<float> calibratedGate(const CorpusRecording& rec, const GridStream& g, Target target) {
    if (isLookTarget(target)) {
        const std::vector<Span> spans = rec.spansOf(LabelKind::CalibrateLookAtScreen);
        float threshold = 0.0f;
        if (spans.empty() || !calibrateLookAtScreen(rec, spans.front(), "", &threshold)) return {1.0f, 0.0f};
        return {threshold, kMaxLookMagnitude};
    }
    if (target == Target::Wink) {
        const std::vector<Span> calibration = rec.spansOf(LabelKind::CalibrateWink);
        float lo = 0.0f, hi = 0.0f;
        bool any = false;
        for (const Label& l : rec.labels) {
            if (l.kind != LabelKind::Wink || calibration.empty() || !calibration.front().contains(l.startNs)) continue;
            const auto r = indexRange(g, ms(l.startNs) - 250.0, ms(l.endNs) + 250.0);
            if (r.first >= r.second) continue;
            const auto mm = std::minmax_element(g.values.begin() + static_cast<long>(r.first),
                                                g.values.begin() + static_cast<long>(r.second));
            const float m = *mm.second - *mm.first;
            lo = any ? std::min(lo, m) : m;
            hi = any ? std::max(hi, m) : m;
            any = true;
        }
        if (any) {
            const float c = 0.5f * (lo + hi);
            return {std::max(5.0f, 0.6f * c), std::min(1000.0f, 2.0f * c + 50.0f)};
        }
    }
    return {5.0f, 1000.0f};
}

}  // namespace

void findTargetEvents(const CorpusRecording& rec, const GridStream& grid, const TargetSetup& setup,
                      std::vector<TargetEvent>* events, std::vector<std::pair<double, double>>* ignored) {
    const std::vector<Label>& labels = rec.labels;
    for (size_t i = 0; i < labels.size(); ++i) {
        const Label& l = labels[i];
        const double s = ms(l.startNs), e = ms(l.endNs);
        switch (setup.target) {
            case Target::DoubleBlink:
            case Target::Wink:
                if (l.kind != (setup.target == Target::Wink ? LabelKind::Wink : LabelKind::DoubleBlink)) break;
                if (e - s >= setup.minDurationMs && e - s <= setup.maxDurationMs) {
                    events->push_back({s, e, kInfinity});
                } else {
                    ignored->push_back({s, e + 1000.0});
                }
                break;
            case Target::LookUp:
            case Target::LookDown: {
                if (l.kind != LabelKind::LookAtScreen) break;
                // The movement back takes as long as the movement there.
                double back = -1.0, backEnd = -1.0;
                for (size_t j = i + 1; j < labels.size() && labels[j].startNs <= l.endNs + 1000000; ++j) {
                    if (labels[j].kind == LabelKind::LookAwayFromScreen && labels[j].startNs >= l.endNs) {
                        back = ms(labels[j].startNs);
                        backEnd = ms(labels[j].endNs);
                        break;
                    }
                }
                if (back < 0) {
                    ignored->push_back({s, e + 1000.0});
                    break;
                }
                const double transition = backEnd - back;
                const double before = medianBetween(grid, s - 700.0, s - 100.0);
                double after = medianBetween(grid, s + transition + 50.0, back - 50.0);
                if (std::isnan(after)) after = medianBetween(grid, s + transition, back);
                if (std::isnan(before) || std::isnan(after)) {
                    ignored->push_back({s, backEnd + 1000.0});
                } else if ((after > before) == (setup.target == Target::LookUp)) {
                    events->push_back({s, s + transition, back});
                } else if (!setup.returnsAsNegatives) {
                    ignored->push_back({back, backEnd + setup.bandToMs + setup.ignoreAfterMs});
                }
                break;
            }
        }
    }
}

TrainingStream prepareStream(const CorpusRecording& rec, const TargetSetup& setup) {
    TrainingStream ts;
    ts.name = rec.name;
    ts.grid = resampleLikeDetector(rec.samples, setup.fps);
    const GridStream& g = ts.grid;
    const size_t n = g.size();
    const size_t L = static_cast<size_t>(setup.windowLength);
    ts.roles.assign(n, WindowRole::Unused);
    for (size_t seg = 0; seg < g.segmentStarts.size(); ++seg) {
        const size_t a = g.segmentStarts[seg];
        const size_t b = seg + 1 < g.segmentStarts.size() ? g.segmentStarts[seg + 1] : n;
        for (size_t i = a + L - 1; i < b; ++i) ts.roles[i] = WindowRole::Negative;
    }

    std::vector<TargetEvent> events;
    std::vector<std::pair<double, double>> ignored;
    findTargetEvents(rec, g, setup, &events, &ignored);
    ts.events = static_cast<int>(events.size());
    auto markUnused = [&](double from, double to) {
        const auto r = indexRange(g, from, to);
        for (size_t i = r.first; i < r.second; ++i) {
            if (ts.roles[i] == WindowRole::Negative) ts.roles[i] = WindowRole::Unused;
        }
    };
    for (const auto& span : ignored) markUnused(span.first, span.second);
    for (const TargetEvent& ev : events) {
        markUnused(ev.endMs - setup.ignoreBeforeMs, ev.endMs + setup.bandToMs + setup.ignoreAfterMs);
    }
    for (const TargetEvent& ev : events) {
        const auto r = indexRange(g, ev.endMs + setup.bandFromMs, std::min(ev.endMs + setup.bandToMs, ev.limitMs));
        for (size_t i = r.first; i < r.second; ++i) {
            if (i + 1 < L || g.segmentStartOf(i) + L - 1 > i) continue;
            if (g.timesMs[i + 1 - L] <= ev.startMs - setup.preMarginMs && g.timesMs[i] < ev.limitMs) {
                ts.roles[i] = WindowRole::Positive;
            }
        }
    }
    if (isLookTarget(setup.target) && setup.skipLookCalibration) {
        const double windowMs = 1000.0 * setup.windowLength / setup.fps;
        for (const Span& c : rec.spansOf(LabelKind::CalibrateLookAtScreen)) {
            const auto r = indexRange(g, ms(c.startNs), ms(c.endNs) + windowMs);
            for (size_t i = r.first; i < r.second; ++i) ts.roles[i] = WindowRole::Unused;
        }
    }
    for (WindowRole r : ts.roles) {
        ts.positives += r == WindowRole::Positive;
        ts.negatives += r == WindowRole::Negative;
    }
    ts.gate = calibratedGate(rec, g, setup.target);
    return ts;
}

TrainingStream prepareNegativeStream(const CorpusRecording& rec, const TargetSetup& setup) {
    TrainingStream ts;
    ts.name = rec.name;
    ts.negativesOnly = true;
    ts.grid = resampleLikeDetector(rec.samples, setup.fps);
    const GridStream& g = ts.grid;
    const size_t L = static_cast<size_t>(setup.windowLength);
    ts.roles.assign(g.size(), WindowRole::Unused);
    for (size_t i = 0; i < g.size(); ++i) {
        if (i + 1 >= L && g.segmentStartOf(i) + L - 1 <= i) {
            ts.roles[i] = WindowRole::Negative;
            ++ts.negatives;
        }
    }
    if (isLookTarget(setup.target)) ts.gate = {kLeastLookThreshold, kMaxLookMagnitude};
    return ts;
}

void slideWindows(const GridStream& grid, int length,
                  const std::function<void(size_t index, const SeqSample& window)>& visit) {
    SeqSample window(length);
    for (size_t seg = 0; seg < grid.segmentStarts.size(); ++seg) {
        const size_t a = grid.segmentStarts[seg];
        const size_t b = seg + 1 < grid.segmentStarts.size() ? grid.segmentStarts[seg + 1] : grid.size();
        window.clear();
        for (size_t i = a; i < b; ++i) {
            window.addNewValue(grid.values[i]);
            if (window.full()) visit(i, window);
        }
    }
}

}  // namespace gazetools
}  // namespace velto
