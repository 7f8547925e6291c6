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
    const ScoringPlan plan = planScoring(rec, kind, fromNs);
    for (int b = 0; b < 2; ++b) {
        const std::vector<int64_t>& times = b == 0 ? d.cascade : d.baseline;
        std::vector<Outcome> outcomes;
        std::vector<Span> missed;
        scoreDetections(plan, times, b == 0 ? &out->cascade : &out->baseline, &outcomes, &missed);
        for (size_t i = 0; i < outcomes.size(); ++i) {
            records->push_back({signal::labelName(kind), b == 1, times[i], outcomes[i]});
        }
        for (const Span& m : missed) records->push_back({signal::labelName(kind), b == 1, m.endNs, Outcome::Ignored, true});
    }
}

void addReport(const GestureReport& from, GestureReport* to) {
    to->cascade.add(from.cascade);
    to->baseline.add(from.baseline);
}

nlohmann::ordered_json number(double v, int decimals) {
    if (std::isnan(v)) return nullptr;
    const double scale = std::pow(10.0, decimals);
    return std::round(v * scale) / scale;
}

nlohmann::ordered_json gestureToJson(const GestureReport& g) {
    nlohmann::ordered_json j = scoreToJson(g.cascade);
    j["wear_hours"] = number(g.cascade.wearHours, 3);
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
                    std::vector<RecordingReplay>* replays, std::string* error) {
    *report = CorpusReport();
    std::vector<RecordingReplay> results(corpus.size());
    std::vector<RecordingReport> scored(corpus.size());
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex errorLock;
    auto work = [&]() {
        for (size_t i = next++; i < corpus.size() && !failed; i = next++) {
            std::string e;
            if (!replayRecording(corpus[i], models, scratchDir, &results[i], &e)) {
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
    j["DOUBLE_BLINK"] = gestureToJson(report.doubleBlink);
    j["WINK"] = gestureToJson(report.wink);
    j["LOOK_AT_SCREEN"] = gestureToJson(report.lookAtScreen);
    if (perRecording) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const RecordingReport& r : report.recordings) {
            nlohmann::ordered_json e;
            e["name"] = r.name;
            e["wink_calibrated"] = r.winkCalibrated;
            e["look_calibrated"] = r.lookCalibrated;
            e["look_threshold"] = r.lookCalibrated ? number(r.lookThreshold, 2) : nullptr;
            e["DOUBLE_BLINK"] = gestureToJson(r.doubleBlink);
            e["WINK"] = gestureToJson(r.wink);
            e["LOOK_AT_SCREEN"] = gestureToJson(r.lookAtScreen);
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
    return out;
}

}  // namespace gazetools
}  // namespace velto
