#include "tools/gazetrain/ListFiles.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "classifier/BoostingDetector.h"
#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "detectors/EyeGestureBoostingDetector.h"
#include "tools/gazeeval/ReplaySensor.h"
#include "tools/gazeeval/Scoring.h"

namespace velto {
namespace gazetools {

namespace {

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string baseName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string canonical(const std::string& dir) {
    char buf[PATH_MAX];
    return realpath(dir.c_str(), buf) != nullptr ? std::string(buf) : dir;
}

bool sameDirectory(const std::string& listPath, const std::string& file, std::string* error) {
    if (canonical(directoryOf(file)) == canonical(directoryOf(listPath))) return true;
    *error = file + ": a listed detector file must lie in the directory of " + listPath;
    return false;
}

bool writeText(const std::string& path, const std::string& text, std::string* error) {
    FILE* f = fopen(path.c_str(), "w");
    bool ok = f != nullptr && fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f != nullptr && fclose(f) != 0) ok = false;
    if (!ok) *error = path + ": cannot write";
    return ok;
}

}  // namespace

bool writeDetectorSetList(const std::string& listPath, const std::vector<std::string>& detectorFiles,
                          std::string* error) {
    std::string text;
    for (const std::string& file : detectorFiles) {
        if (!sameDirectory(listPath, file, error)) return false;
        text += baseName(file) + "\n";
    }
    if (!writeText(listPath, text, error)) return false;
    EyeGestureBoostingDetector check(GazeServiceInterface::DOUBLE_BLINK);
    if (!check.loadDetectorFromFile(listPath.c_str())) {
        *error = listPath + ": written, but the library does not load it";
        return false;
    }
    return true;
}

bool writeWinkList(const std::string& listPath, const std::vector<WinkListEntry>& entries, std::string* error) {
    std::string text;
    for (const WinkListEntry& e : entries) {
        if (!sameDirectory(listPath, e.detectorFile, error)) return false;
        char range[64];
        snprintf(range, sizeof(range), "%.0f %.0f\n", static_cast<double>(e.durationRangeMs.min),
                 static_cast<double>(e.durationRangeMs.max));
        text += range + baseName(e.detectorFile) + "\n";
    }
    if (!writeText(listPath, text, error)) return false;
    ReplaySensor sensor;
    CalibratedMultiDurationWinkDetector check(&sensor);
    if (!check.loadDetectorFromFile(listPath.c_str()) || check.getNumDetectors() != static_cast<int>(entries.size())) {
        *error = listPath + ": written, but the library does not load it";
        return false;
    }
    return true;
}

bool measureWinkDurations(const std::vector<CorpusRecording>& corpus, const std::string& detectorFile,
                          double minLabelMs, double maxLabelMs, std::vector<float>* durations, int* labels,
                          std::string* error) {
    *labels = 0;
    for (const CorpusRecording& rec : corpus) {
        DetectorOptions options;
        options.frame_rate = 32.0f;
        BoostingDetector detector(options);
        if (!detector.loadDetectorFromFile(detectorFile.c_str())) {
            *error = detectorFile + ": the library cannot load this detector";
            return false;
        }
        detector.setMagnitudeRange(CalibratedMultiDurationWinkDetector::kDetectorMagnitudeRange);
        std::vector<Span> winks;
        for (const Span& s : rec.spansOf(signal::LabelKind::Wink)) {
            const double d = static_cast<double>(s.endNs - s.startNs) * 1e-6;
            if (d >= minLabelMs && d <= maxLabelMs) winks.push_back(s);
        }
        *labels += static_cast<int>(winks.size());
        size_t next = 0;
        for (const signal::RecordedSample& s : rec.samples) {
            BoostingDetector::GestureInfo info;
            if (!detector.normalizeFrameRateAndDetectGesture(static_cast<double>(s.timestampNs) * 1e-6,
                                                             static_cast<float>(s.reading & 0x3FFF), &info)) {
                continue;
            }
            while (next < winks.size() && winks[next].endNs + kMatchSlackNs < s.timestampNs) ++next;
            if (next < winks.size() && winks[next].startNs <= s.timestampNs) {
                durations->push_back(info.duration);
                ++next;
            }
        }
    }
    return true;
}

}  // namespace gazetools
}  // namespace velto
