#include "tools/gazeeval/Evaluation.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <thread>

namespace velto {
namespace gazetools {

namespace {

using signal::LabelKind;

void scoreGesture(const CorpusRecording& rec, LabelKind kind, int64_t fromNs, const Detections& d,
                  GestureReport* out, std::vector<DetectionRecord>* records) {
    ScoringPlan plan = planScoring(rec, kind, fromNs);
    const bool look = kind == LabelKind::LookAtScreen;
    if (look) plan.slackNs = kLookMatchSlackNs;
    for (int b = 0; b < 2; ++b) {
        const std::vector<int64_t>& times = b == 0 ? d.cascade : d.baseline;
        std::vector<Outcome> outcomes;
        std::vector<Span> missed;
        std::vector<double> latency;
        scoreDetections(plan, times, b == 0 ? &out->cascade : &out->baseline, &outcomes, &missed, nullptr, &latency);
        for (size_t i = 0; i < outcomes.size(); ++i) {
            records->push_back({signal::labelName(kind), b == 1, times[i], outcomes[i]});
        }
        for (const Span& m : missed) records->push_back({signal::labelName(kind), b == 1, m.endNs, Outcome::Ignored, true});
        if (b == 1) continue;
        if (look) {
            for (size_t i = 0; i < plan.targets.size(); ++i) {
                GestureScore& dir = rec.lookRaisesReading(plan.targets[i]) ? out->rising : out->falling;
                ++dir.events;
                if (std::isnan(latency[i])) continue;
                ++dir.matched;
                ++dir.detections;
                dir.latenciesMs.push_back(latency[i]);
            }
        } else if (kind == LabelKind::DoubleBlink) {
            std::vector<Span> blinks;
            for (const Span& s : rec.spansOf(LabelKind::Blink)) {
                if (s.startNs >= plan.fromNs && !insideAny(plan.excluded, s.startNs)) blinks.push_back(s);
            }
            const std::vector<Span> doublets = naturalDoublets(blinks);
            for (size_t i = 0; i < outcomes.size(); ++i) {
                if (outcomes[i] != Outcome::FalsePositive) continue;
                switch (falseCause(times[i], doublets, rec.partialBlinks)) {
                    case FalseCause::NaturalDoublet: ++out->doublets.falseOnDoublet; break;
                    case FalseCause::PartialBlink: ++out->doublets.falseOnPartialBlink; break;
                    case FalseCause::Elsewhere: ++out->doublets.falseElsewhere; break;
                }
            }
            out->doublets.naturalDoublets += static_cast<int>(doublets.size());
            for (const Span& p : doublets) {
                for (size_t i = 0; i < outcomes.size(); ++i) {
                    if (outcomes[i] == Outcome::FalsePositive && times[i] >= p.startNs &&
                        times[i] <= p.endNs + kMatchSlackNs) {
                        ++out->doublets.naturalDoubletsDetected;
                        break;
                    }
                }
            }
        }
    }
    if (look) {
        // The old rule, kept for comparison with earlier reports.
        plan.slackNs = kMatchSlackNs;
        plan.latencyFromEnd = true;
        scoreDetections(plan, d.cascade, &out->oldRule);
    }
}

void addReport(const GestureReport& from, GestureReport* to) {
    to->cascade.add(from.cascade);
    to->baseline.add(from.baseline);
    to->rising.add(from.rising);
    to->falling.add(from.falling);
    to->oldRule.add(from.oldRule);
    to->doublets.add(from.doublets);
}

nlohmann::ordered_json number(double v, int decimals) {
    if (std::isnan(v)) return nullptr;
    const double scale = std::pow(10.0, decimals);
    return std::round(v * scale) / scale;
}

nlohmann::ordered_json directionToJson(const GestureScore& s) {
    nlohmann::ordered_json j;
    j["recall"] = number(s.recall(), 4);
    j["latency_ms_median"] = number(s.latencyPercentileMs(0.5), 1);
    j["latency_ms_p95"] = number(s.latencyPercentileMs(0.95), 1);
    j["events"] = s.events;
    return j;
}

nlohmann::ordered_json gestureToJson(const GestureReport& g, LabelKind kind) {
    nlohmann::ordered_json j = scoreToJson(g.cascade);
    j["wear_hours"] = number(g.cascade.wearHours, 3);
    if (kind == LabelKind::DoubleBlink) {
        const DoubletReport& d = g.doublets;
        j["false_on_natural_doublet"] = d.falseOnDoublet;
        j["false_on_partial_blink"] = d.falseOnPartialBlink;
        j["false_elsewhere"] = d.falseElsewhere;
        j["fp_per_hour_outside_doublets"] =
                number(g.cascade.wearHours > 0 ? (d.falseOnPartialBlink + d.falseElsewhere) / g.cascade.wearHours
                                               : std::nan(""),
                       3);
        j["natural_doublets"] = d.naturalDoublets;
        j["natural_doublets_detected"] = d.naturalDoubletsDetected;
    } else if (kind == LabelKind::LookAtScreen) {
        j["rising"] = directionToJson(g.rising);
        j["falling"] = directionToJson(g.falling);
        nlohmann::ordered_json old = scoreToJson(g.oldRule);
        old.erase("latency_ms_p95");
        old["rule"] = "up to 1000 ms after the look, latency from its end";
        j["old_rule"] = old;
    }
    j["baseline"] = scoreToJson(g.baseline);
    return j;
}

std::string cell(double v, const char* format) {
    if (std::isnan(v)) return "-";
    char buf[32];
    snprintf(buf, sizeof(buf), format, v);
    return buf;
}

std::string textRow(const char* name, const GestureScore& s) {
    char buf[256];
    snprintf(buf, sizeof(buf), "  %-10s %6s %9s %6s %8s %9s %8s %6d %6d\n", name, cell(s.recall(), "%.3f").c_str(),
             cell(s.precision(), "%.3f").c_str(), cell(s.f1(), "%.3f").c_str(), cell(s.fpPerHour(), "%.2f").c_str(),
             cell(s.latencyPercentileMs(0.5), "%.0f").c_str(), cell(s.latencyPercentileMs(0.95), "%.0f").c_str(),
             s.events, s.detections);
    return buf;
}

}  // namespace

RecordingReport scoreRecording(const CorpusRecording& rec, const RecordingReplay& replay) {
    RecordingReport r;
    r.name = rec.name;
    r.winkCalibrated = replay.winkCalibrated;
    r.lookCalibrated = replay.lookCalibrated;
    r.lookThreshold = replay.lookThreshold;
    scoreGesture(rec, LabelKind::DoubleBlink, rec.firstNs, replay.doubleBlink, &r.doubleBlink, &r.detections);
    scoreGesture(rec, LabelKind::Wink, replay.winkFromNs, replay.wink, &r.wink, &r.detections);
    scoreGesture(rec, LabelKind::LookAtScreen, replay.lookFromNs, replay.lookAtScreen, &r.lookAtScreen,
                 &r.detections);
    return r;
}

bool evaluateCorpus(const std::vector<CorpusRecording>& corpus, const ModelFiles& models,
                    const std::string& scratchDir, int threads, CorpusReport* report,
                    std::vector<RecordingReplay>* replays, std::string* error, float uncalibratedLookThreshold) {
    *report = CorpusReport();
    std::vector<RecordingReplay> results(corpus.size());
    std::vector<RecordingReport> scored(corpus.size());
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex errorLock;
    auto work = [&]() {
        for (size_t i = next++; i < corpus.size() && !failed; i = next++) {
            std::string e;
            if (!replayRecording(corpus[i], models, scratchDir, &results[i], &e, uncalibratedLookThreshold)) {
                std::lock_guard<std::mutex> lock(errorLock);
                if (!failed.exchange(true)) *error = e;
                return;
            }
            scored[i] = scoreRecording(corpus[i], results[i]);
        }
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < threads; ++t) pool.emplace_back(work);
    work();
    for (std::thread& t : pool) t.join();
    if (failed) return false;

    for (size_t i = 0; i < corpus.size(); ++i) {
        report->hours += corpus[i].hours();
        addReport(scored[i].doubleBlink, &report->doubleBlink);
        addReport(scored[i].wink, &report->wink);
        addReport(scored[i].lookAtScreen, &report->lookAtScreen);
    }
    report->recordings = std::move(scored);
    if (replays != nullptr) *replays = std::move(results);
    return true;
}

void DoubletReport::add(const DoubletReport& o) {
    falseOnDoublet += o.falseOnDoublet;
    falseOnPartialBlink += o.falseOnPartialBlink;
    falseElsewhere += o.falseElsewhere;
    naturalDoublets += o.naturalDoublets;
    naturalDoubletsDetected += o.naturalDoubletsDetected;
}

nlohmann::ordered_json scoreToJson(const GestureScore& s) {
    nlohmann::ordered_json j;
    j["recall"] = number(s.recall(), 4);
    j["precision"] = number(s.precision(), 4);
    j["f1"] = number(s.f1(), 4);
    j["fp_per_hour"] = number(s.fpPerHour(), 3);
    j["latency_ms_median"] = number(s.latencyPercentileMs(0.5), 1);
    j["latency_ms_p95"] = number(s.latencyPercentileMs(0.95), 1);
    j["events"] = s.events;
    j["detections"] = s.detections;
    return j;
}

nlohmann::ordered_json reportToJson(const CorpusReport& report, bool perRecording) {
    nlohmann::ordered_json j;
    j["hours"] = number(report.hours, 3);
    j["recordings"] = report.recordings.size();
    int winkIncomplete = 0, lookFailed = 0;
    for (const RecordingReport& r : report.recordings) {
        winkIncomplete += !r.winkCalibrated;
        lookFailed += !r.lookCalibrated;
    }
    j["wink_calibration_incomplete"] = winkIncomplete;
    j["look_calibration_failed"] = lookFailed;
    j["DOUBLE_BLINK"] = gestureToJson(report.doubleBlink, LabelKind::DoubleBlink);
    j["WINK"] = gestureToJson(report.wink, LabelKind::Wink);
    j["LOOK_AT_SCREEN"] = gestureToJson(report.lookAtScreen, LabelKind::LookAtScreen);
    if (perRecording) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const RecordingReport& r : report.recordings) {
            nlohmann::ordered_json e;
            e["name"] = r.name;
            e["wink_calibrated"] = r.winkCalibrated;
            e["look_calibrated"] = r.lookCalibrated;
            e["look_threshold"] = r.lookCalibrated ? number(r.lookThreshold, 2) : nullptr;
            e["DOUBLE_BLINK"] = gestureToJson(r.doubleBlink, LabelKind::DoubleBlink);
            e["WINK"] = gestureToJson(r.wink, LabelKind::Wink);
            e["LOOK_AT_SCREEN"] = gestureToJson(r.lookAtScreen, LabelKind::LookAtScreen);
            list.push_back(e);
        }
        j["per_recording"] = list;
    }
    return j;
}

std::string detectionsToTsv(const CorpusReport& report) {
    std::string out = "recording\tgesture\tdetector\ttime_ns\toutcome\n";
    for (const RecordingReport& r : report.recordings) {
        for (const DetectionRecord& d : r.detections) {
            const char* outcome = d.missedLabel                         ? "missed_label"
                                  : d.outcome == Outcome::Matched         ? "matched"
                                  : d.outcome == Outcome::FalsePositive ? "false_positive"
                                                                        : "not_scored";
            out += r.name + "\t" + d.gesture + "\t" + (d.baseline ? "baseline" : "cascade") + "\t" +
                   std::to_string(d.timeNs) + "\t" + outcome + "\n";
        }
    }
    return out;
}

std::string reportToText(const CorpusReport& report) {
    char head[128];
    snprintf(head, sizeof(head), "%zu recordings, %.2f hours\n", report.recordings.size(), report.hours);
    std::string out = head;
    out += "  gesture    recall precision     f1  fp/hour lat.med ms lat.p95  events  dets\n";
    const std::pair<const char*, const GestureReport*> rows[] = {
            {"DOUBLE_BLINK", &report.doubleBlink}, {"WINK", &report.wink}, {"LOOK_AT_SCREEN", &report.lookAtScreen}};
    for (const auto& r : rows) {
        out += std::string(r.first) + "\n";
        out += textRow("cascade", r.second->cascade);
        out += textRow("baseline", r.second->baseline);
    }
    const GestureReport& look = report.lookAtScreen;
    out += "LOOK_AT_SCREEN by direction\n";
    out += textRow("rising", look.rising);
    out += textRow("falling", look.falling);
    out += textRow("old rule", look.oldRule);
    const DoubletReport& d = report.doubleBlink.doublets;
    char buf[256];
    snprintf(buf, sizeof(buf),
             "false DOUBLE_BLINK: %d on natural doublets, %d on partial blinks, %d elsewhere; "
             "%d of %d natural doublets detected\n",
             d.falseOnDoublet, d.falseOnPartialBlink, d.falseElsewhere, d.naturalDoubletsDetected, d.naturalDoublets);
    out += buf;
    return out;
}

nlohmann::ordered_json sectionToJson(const CorpusReport& report) {
    nlohmann::ordered_json j;
    j["name"] = report.name;
    j["hours"] = number(report.hours, 3);
    j["recordings"] = report.recordings.size();
    const std::pair<const char*, const GestureReport*> rows[] = {
            {"DOUBLE_BLINK", &report.doubleBlink}, {"WINK", &report.wink}, {"LOOK_AT_SCREEN", &report.lookAtScreen}};
    for (const auto& r : rows) {
        const GestureScore& s = r.second->cascade;
        nlohmann::ordered_json g;
        g["false_detections"] = s.detections - s.matched;
        g["fp_per_hour"] = number(s.fpPerHour(), 3);
        g["events"] = s.events;
        g["recall"] = number(s.recall(), 4);
        g["wear_hours"] = number(s.wearHours, 3);
        j[r.first] = g;
    }
    const DoubletReport& d = report.doubleBlink.doublets;
    j["DOUBLE_BLINK"]["false_on_natural_doublet"] = d.falseOnDoublet;
    j["DOUBLE_BLINK"]["natural_doublets"] = d.naturalDoublets;
    j["DOUBLE_BLINK"]["natural_doublets_detected"] = d.naturalDoubletsDetected;
    return j;
}

std::string sectionToText(const CorpusReport& report) {
    char buf[512];
    const GestureScore& db = report.doubleBlink.cascade;
    const GestureScore& w = report.wink.cascade;
    const GestureScore& l = report.lookAtScreen.cascade;
    snprintf(buf, sizeof(buf),
             "%s: %zu recordings, %.2f hours; false detections (per hour): DOUBLE_BLINK %d (%s), WINK %d (%s), "
             "LOOK_AT_SCREEN %d (%s)\n",
             report.name.c_str(), report.recordings.size(), report.hours, db.detections - db.matched,
             cell(db.fpPerHour(), "%.2f").c_str(), w.detections - w.matched, cell(w.fpPerHour(), "%.2f").c_str(),
             l.detections - l.matched, cell(l.fpPerHour(), "%.2f").c_str());
    return buf;
}

}  // namespace gazetools
}  // namespace velto
