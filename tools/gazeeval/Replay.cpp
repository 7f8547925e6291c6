#include "tools/gazeeval/Replay.h"

#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "calibration/LookAtScreenCalibrator.h"
#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "detectors/EyeGestureBoostingDetector.h"
#include "proxdata/ProxData.h"
#include "tools/gazeeval/Baseline.h"
#include "tools/gazeeval/ReplaySensor.h"
#include "veltoutils/Paths.h"

namespace velto {
namespace gazetools {

namespace {

using signal::LabelKind;
using signal::RecordedSample;

// The look-at-screen module's cap on a look's magnitude.
constexpr float kMaxLookMagnitude = 500.0f;

void logToStderr(const struct __android_logger_data* data, const char* message) {
    fprintf(stderr, "%d %s: %s\n", data->priority, data->tag != nullptr ? data->tag : "", message);
}

void discardLog(const struct __android_logger_data*, const char*) {}

float readingOf(const RecordedSample& s) { return static_cast<float>(s.reading & 0x3FFF); }

std::unique_ptr<EyeGestureBoostingDetector> loadSet(EyeGesture gesture, const std::string& path) {
    std::unique_ptr<EyeGestureBoostingDetector> d(new EyeGestureBoostingDetector(gesture));
    if (!d->loadDetectorFromFile(path.c_str())) d.reset();
    return d;
}

void replayDoubleBlink(const CorpusRecording& rec, EyeGestureBoostingDetector* detector,
                       std::vector<int64_t>* out) {
    for (const RecordedSample& s : rec.samples) {
        const float v = readingOf(s);
        if (detector->update(s.timestampNs, &v, 1) == GazeServiceInterface::DOUBLE_BLINK) {
            out->push_back(s.timestampNs);
        }
    }
}

// Outside the calibration spans every wink the detector reports counts, as
// the wink module reports it; a calibration that stopped short of its second
// consistent wink still leaves an active detector and ranges behind, and the
// detector works with them.
bool replayWink(const CorpusRecording& rec, CalibratedMultiDurationWinkDetector* detector,
                std::vector<int64_t>* out) {
    const std::vector<Span> spans = rec.spansOf(LabelKind::CalibrateWink);
    size_t next = 0;
    bool inSpan = false;
    for (const RecordedSample& s : rec.samples) {
        const int64_t t = s.timestampNs;
        if (inSpan && t > spans[next].endNs) {
            if (detector->isCalibrationOn()) detector->endCalibrationInterval();
            inSpan = false;
            ++next;
        }
        if (!inSpan && next < spans.size() && spans[next].contains(t)) {
            inSpan = true;
            detector->startCalibrationInterval();
        }
        const float v = readingOf(s);
        const int result = detector->update(t, &v, 1);
        if (result == GazeServiceInterface::WINK && !inSpan) out->push_back(t);
    }
    if (detector->isCalibrationOn()) detector->endCalibrationInterval();
    return detector->isCalibrated();
}

}  // namespace

bool calibrateLookAtScreen(const CorpusRecording& rec, const Span& span, const std::string& scratchDir,
                           float* threshold) {
    ReplaySensor sensor;
    // The library puts its root in front of absolute paths that are not
    // already below it.
    std::string dir = scratchDir.empty() ? defaultScratchDir() : scratchDir;
    if (!Paths::root().isEmpty() && dir.rfind(Paths::root().string(), 0) != 0) dir = Paths::root().string() + dir;
    std::string path = dir + "/gazeeval-laser-params-XXXXXX";
    const int fd = mkstemp(&path[0]);
    if (fd < 0) return false;
    close(fd);
    android::sp<LookAtScreenCalibrator> calibrator = new LookAtScreenCalibrator(
            &sensor, path.c_str(), LookAtScreenCalibrator::kDefaultMinClusterSize,
            LookAtScreenCalibrator::kDefaultMinClusterSeparation, LookAtScreenCalibrator::kDefaultThresholdFraction,
            LookAtScreenCalibrator::kDefaultMaxNumSamples, LookAtScreenCalibrator::kDefaultMinNumSamples,
            LookAtScreenCalibrator::kDefaultOutlierFraction);
    bool ok = calibrator->beginCalibrationInterval();
    for (const RecordedSample& s : rec.samples) {
        if (!ok || !calibrator->isCalibrating()) break;
        if (span.contains(s.timestampNs)) calibrator->onProxData(ProxData(s.reading, s.timestampNs));
    }
    if (calibrator->isCalibrating()) calibrator->endCalibrationInterval();
    ok = ok && calibrator->updateAndSaveCalibration();
    if (ok) {
        FILE* f = fopen(path.c_str(), "r");
        ok = f != nullptr && fscanf(f, "%f", threshold) == 1;
        if (f != nullptr) fclose(f);
    }
    remove(path.c_str());
    return ok;
}

ModelFiles ModelFiles::inDirectory(const std::string& dir) {
    ModelFiles m;
    m.doubleBlinkSet = dir + "/two_blink_detector_set.txt";
    m.winkList = dir + "/multi_dur_wink_detector.txt";
    m.lookAtScreenSet = dir + "/laser_detector_set.txt";
    return m;
}

bool ModelFiles::check(std::string* error) const {
    if (!loadSet(GazeServiceInterface::DOUBLE_BLINK, doubleBlinkSet)) {
        *error = doubleBlinkSet + ": the library cannot load this detector set";
        return false;
    }
    if (!loadSet(GazeServiceInterface::LOOK_AT_SCREEN, lookAtScreenSet)) {
        *error = lookAtScreenSet + ": the library cannot load this detector set";
        return false;
    }
    ReplaySensor sensor;
    CalibratedMultiDurationWinkDetector wink(&sensor);
    if (!wink.loadDetectorFromFile(winkList.c_str())) {
        *error = winkList + ": the library cannot load this wink detector list";
        return false;
    }
    return true;
}

bool replayRecording(const CorpusRecording& rec, const ModelFiles& models, const std::string& scratchDir,
                     RecordingReplay* out, std::string* error, float uncalibratedLookThreshold) {
    *out = RecordingReplay();
    const ThresholdBaseline baseline(rec);

    std::unique_ptr<EyeGestureBoostingDetector> doubleBlink = loadSet(GazeServiceInterface::DOUBLE_BLINK,
                                                                      models.doubleBlinkSet);
    if (!doubleBlink) {
        *error = models.doubleBlinkSet + ": the library cannot load this detector set";
        return false;
    }
    replayDoubleBlink(rec, doubleBlink.get(), &out->doubleBlink.cascade);
    out->doubleBlink.baseline = baseline.doubleBlinks();

    ReplaySensor sensor;
    CalibratedMultiDurationWinkDetector wink(&sensor);
    if (!wink.loadDetectorFromFile(models.winkList.c_str())) {
        *error = models.winkList + ": the library cannot load this wink detector list";
        return false;
    }
    out->winkCalibrated = replayWink(rec, &wink, &out->wink.cascade);
    const std::vector<Span> winkCalibration = rec.spansOf(LabelKind::CalibrateWink);
    out->winkFromNs = winkCalibration.empty() ? rec.firstNs : winkCalibration.front().endNs;
    out->wink.baseline = baseline.winks(winkCalibration.empty() ? Span() : winkCalibration.front());

    // The look-at-screen module runs only once it is calibrated; each
    // calibration span replaces the threshold.
    const std::vector<Span> lookCalibration = rec.spansOf(LabelKind::CalibrateLookAtScreen);
    out->lookFromNs = lookCalibration.empty() ? rec.firstNs : lookCalibration.front().endNs;
    std::unique_ptr<EyeGestureBoostingDetector> look;
    if (lookCalibration.empty() && uncalibratedLookThreshold > 0) {
        look = loadSet(GazeServiceInterface::LOOK_AT_SCREEN, models.lookAtScreenSet);
        if (!look) {
            *error = models.lookAtScreenSet + ": the library cannot load this detector set";
            return false;
        }
        look->setMagnitudeRange(Interval<float>(uncalibratedLookThreshold, kMaxLookMagnitude));
        out->lookThreshold = uncalibratedLookThreshold;
        out->lookCalibrated = true;
    }
    size_t next = 0;
    for (const RecordedSample& s : rec.samples) {
        const int64_t t = s.timestampNs;
        if (next < lookCalibration.size() && t >= lookCalibration[next].startNs) {
            look.reset();
            float threshold = 0.0f;
            if (calibrateLookAtScreen(rec, lookCalibration[next], scratchDir, &threshold)) {
                look = loadSet(GazeServiceInterface::LOOK_AT_SCREEN, models.lookAtScreenSet);
                if (!look) {
                    *error = models.lookAtScreenSet + ": the library cannot load this detector set";
                    return false;
                }
                look->setMagnitudeRange(Interval<float>(threshold, kMaxLookMagnitude));
                if (!out->lookCalibrated) out->lookThreshold = threshold;
                out->lookCalibrated = true;
            }
            ++next;
        }
        if (!look || insideAny(lookCalibration, t)) continue;
        const float v = readingOf(s);
        if (look->update(t, &v, 1) == GazeServiceInterface::LOOK_AT_SCREEN) out->lookAtScreen.cascade.push_back(t);
    }
    if (out->lookCalibrated) out->lookAtScreen.baseline = baseline.looksAtScreen(out->lookFromNs, out->lookThreshold);
    return true;
}

std::string defaultScratchDir() {
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

void routeLibraryLog(bool verbose) {
    __android_log_set_logger(verbose ? logToStderr : discardLog);
    __android_log_set_minimum_priority(verbose ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);
}

}  // namespace gazetools
}  // namespace velto
