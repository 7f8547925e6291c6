#include "tools/gazectl/DemoReport.h"

#include <stdio.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "service/GazeService.h"
#include "tools/gazeeval/Scoring.h"
#include "tools/gazeeval/SvgPlot.h"

namespace velto {
namespace gazectl {

namespace {

typedef GazeServiceInterface G;
using gazetools::Outcome;

const char* nameOf(G::EyeGesture g) { return GazeService::eyeGestureAsString8(g).string(); }

double secondsSince(int64_t t, int64_t originNs) { return static_cast<double>(t - originNs) * 1e-9; }

bool labelKindOf(G::EyeGesture g, signal::LabelKind* kind) {
    switch (g) {
        case G::WINK: *kind = signal::LabelKind::Wink; return true;
        case G::DOUBLE_BLINK: *kind = signal::LabelKind::DoubleBlink; return true;
        case G::LOOK_AT_SCREEN: *kind = signal::LabelKind::LookAtScreen; return true;
        case G::DON: *kind = signal::LabelKind::Don; return true;
        case G::DOFF: *kind = signal::LabelKind::Doff; return true;
        default: return false;
    }
}

}  // namespace

int DemoResult::detectedCount() const {
    return static_cast<int>(std::count_if(rows.begin(), rows.end(), [](const Row& r) { return r.detected; }));
}

bool latencyFromStart(G::EyeGesture gesture) { return gesture == G::LOOK_AT_SCREEN; }

DemoResult scoreDemo(const std::vector<ExpectedGesture>& expected, const std::vector<DemoDetection>& detections,
                     int64_t fromNs, int64_t toNs) {
    DemoResult result;
    result.fromNs = fromNs;
    result.toNs = toNs;
    for (const ExpectedGesture& e : expected) result.rows.push_back({e, false, 0, 0});

    std::vector<DemoDetection> sorted;
    for (const DemoDetection& d : detections) {
        if (d.hubNs >= fromNs && d.hubNs <= toNs) sorted.push_back(d);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const DemoDetection& a, const DemoDetection& b) { return a.hubNs < b.hubNs; });

    // Each gesture is scored on its own, by gazeeval's rules.
    for (int g = 0; g < G::NUM_EYE_GESTURES; ++g) {
        gazetools::ScoringPlan plan;
        plan.fromNs = fromNs;
        if (g == G::LOOK_AT_SCREEN) plan.slackNs = gazetools::kLookMatchSlackNs;
        std::vector<size_t> rowOf;
        for (size_t i = 0; i < expected.size(); ++i) {
            if (expected[i].gesture != g) continue;
            plan.targets.push_back({expected[i].startNs, expected[i].endNs});
            rowOf.push_back(i);
        }
        std::vector<int64_t> times;
        std::vector<DemoDetection> mine;
        for (const DemoDetection& d : sorted) {
            if (d.gesture != g) continue;
            times.push_back(d.hubNs);
            mine.push_back(d);
        }
        gazetools::GestureScore score;
        std::vector<Outcome> outcomes;
        std::vector<int> matched;
        gazetools::scoreDetections(plan, times, &score, &outcomes, nullptr, &matched);
        for (size_t k = 0; k < mine.size(); ++k) {
            if (outcomes[k] == Outcome::FalsePositive) result.falseDetections.push_back(mine[k]);
            if (matched[k] < 0) continue;
            DemoResult::Row& row = result.rows[rowOf[static_cast<size_t>(matched[k])]];
            row.detected = true;
            row.detectedNs = mine[k].hubNs;
            const int64_t from = latencyFromStart(row.expected.gesture) ? row.expected.startNs : row.expected.endNs;
            row.latencyMs = static_cast<double>(mine[k].hubNs - from) * 1e-6;
        }
    }
    std::stable_sort(result.falseDetections.begin(), result.falseDetections.end(),
                     [](const DemoDetection& a, const DemoDetection& b) { return a.hubNs < b.hubNs; });
    return result;
}

std::string formatDemoTable(const DemoResult& result, int64_t originNs) {
    std::string out;
    char line[200];
    snprintf(line, sizeof(line), "  %-16s %-15s %8s %8s  %-9s %s\n", "wearer", "expected", "at (s)", "length", "result",
             "latency");
    out += line;
    for (const DemoResult::Row& r : result.rows) {
        const ExpectedGesture& e = r.expected;
        char latency[48] = "-";
        if (r.detected) {
            // Blinks and winks are recognised from their shape, so a detection
            // may come just before the labelled end.
            const bool fromStart = latencyFromStart(e.gesture);
            snprintf(latency, sizeof(latency), "%5.0f ms %s it %s", std::fabs(r.latencyMs),
                     r.latencyMs < 0 ? "before" : "after", fromStart ? "began" : "ended");
        }
        snprintf(line, sizeof(line), "  %-16s %-15s %8.2f %6.0f ms  %-9s %s\n", e.action.c_str(), nameOf(e.gesture),
                 secondsSince(e.startNs, originNs), static_cast<double>(e.endNs - e.startNs) * 1e-6,
                 r.detected ? "detected" : "MISSED", latency);
        out += line;
    }
    snprintf(line, sizeof(line), "  %d of %zu gestures detected; %zu false detection%s", result.detectedCount(),
             result.rows.size(), result.falseDetections.size(), result.falseDetections.size() == 1 ? "" : "s");
    out += line;
    for (size_t i = 0; i < result.falseDetections.size(); ++i) {
        const DemoDetection& d = result.falseDetections[i];
        snprintf(line, sizeof(line), "%s%s at %.2f s", i == 0 ? ": " : ", ", nameOf(d.gesture),
                 secondsSince(d.hubNs, originNs));
        out += line;
    }
    out += "\n";
    return out;
}

std::string formatDemoJson(const DemoResult& result, int64_t originNs, const std::string& svgPath) {
    nlohmann::json rows = nlohmann::json::array();
    for (const DemoResult::Row& r : result.rows) {
        nlohmann::json row = {{"action", r.expected.action},
                              {"gesture", nameOf(r.expected.gesture)},
                              {"start_s", secondsSince(r.expected.startNs, originNs)},
                              {"end_s", secondsSince(r.expected.endNs, originNs)},
                              {"detected", r.detected}};
        if (r.detected) {
            row["detected_s"] = secondsSince(r.detectedNs, originNs);
            row["latency_ms"] = r.latencyMs;
            row["latency_from"] = latencyFromStart(r.expected.gesture) ? "start" : "end";
        }
        rows.push_back(row);
    }
    nlohmann::json falses = nlohmann::json::array();
    for (const DemoDetection& d : result.falseDetections) {
        falses.push_back({{"gesture", nameOf(d.gesture)}, {"at_s", secondsSince(d.hubNs, originNs)}});
    }
    nlohmann::json out = {{"gestures", rows},
                          {"expected", result.rows.size()},
                          {"detected", result.detectedCount()},
                          {"false_detections", falses},
                          {"scored_from_s", secondsSince(result.fromNs, originNs)},
                          {"scored_to_s", secondsSince(result.toNs, originNs)}};
    if (!svgPath.empty()) out["timeline_svg"] = svgPath;
    return out.dump(2) + "\n";
}

std::string renderDemoTimeline(const DemoResult& result, const std::vector<signal::RecordedSample>& samples,
                               const std::vector<signal::Label>& labels) {
    gazetools::CorpusRecording rec;
    rec.name = "make demo: the wearer's readings, what the wearer did, what the service reported";
    for (const signal::RecordedSample& s : samples) {
        if (s.timestampNs >= result.fromNs && s.timestampNs <= result.toNs) rec.samples.push_back(s);
    }
    // The time axis counts from the start of the scored period, as the table does.
    rec.firstNs = result.fromNs;
    rec.lastNs = result.toNs;
    if (labels.empty()) {
        for (const DemoResult::Row& r : result.rows) {
            signal::LabelKind kind;
            if (labelKindOf(r.expected.gesture, &kind)) rec.labels.push_back({r.expected.startNs, r.expected.endNs, kind});
        }
    } else {
        for (const signal::Label& l : labels) {
            if (!signal::isAnnotation(l.kind)) rec.labels.push_back(l);
        }
    }

    gazetools::PlotMarks hits{"detected (hit)", "#00a651", {}};
    gazetools::PlotMarks falses{"false detection", "#ff00ff", {}};
    gazetools::PlotMarks missed{"missed (at the gesture's end)", "#ff7f0e", {}};
    for (const DemoResult::Row& r : result.rows) {
        (r.detected ? hits.timesNs : missed.timesNs).push_back(r.detected ? r.detectedNs : r.expected.endNs);
    }
    for (const DemoDetection& d : result.falseDetections) falses.timesNs.push_back(d.hubNs);
    return gazetools::renderSvg(rec, rec.firstNs, rec.lastNs, {hits, falses, missed});
}

}  // namespace gazectl
}  // namespace velto
