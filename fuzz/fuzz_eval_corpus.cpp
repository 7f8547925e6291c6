// A recording and its labels file, split at the first NUL byte of the input,
// through the corpus checks of gazeeval and gazetrain and the scoring of the
// labels they accept.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/gazeeval/Corpus.h"
#include "tools/gazeeval/Scoring.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\0');
    const std::string recording = input.substr(0, split);
    const std::string labels = split == std::string::npos ? std::string() : input.substr(split + 1);
    velto::gazetools::CorpusRecording rec;
    velto::gazetools::InputError error;
    if (!velto::gazetools::parseRecordingPair("r.txt", recording, "r.labels", labels, &rec, &error)) {
        if (error.file.empty() || error.message.empty()) __builtin_trap();
        return 0;
    }
    if (rec.samples.empty() || rec.firstNs > rec.lastNs) __builtin_trap();
    for (size_t i = 1; i < rec.labels.size(); ++i) {
        if (rec.labels[i].startNs < rec.labels[i - 1].startNs) __builtin_trap();
    }
    // Every sample time as a detection: the scoring must hold its counts.
    std::vector<int64_t> detections;
    for (const auto& s : rec.samples) detections.push_back(s.timestampNs);
    std::sort(detections.begin(), detections.end());
    for (int kind = 0; kind <= static_cast<int>(velto::signal::LabelKind::CalibrateDonDoff); ++kind) {
        const auto plan = velto::gazetools::planScoring(rec, static_cast<velto::signal::LabelKind>(kind), rec.firstNs);
        velto::gazetools::GestureScore score;
        velto::gazetools::scoreDetections(plan, detections, &score);
        if (score.matched > score.detections || score.matched > score.events || score.wearHours < 0) __builtin_trap();
    }
    return 0;
}
