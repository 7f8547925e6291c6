#include "detectors/CalibratedMultiDurationWinkDetector.h"

#include <float.h>
#include <log/log.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <limits>

#include "classifier/TextFile.h"
#include "service/GazeService.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:MultiDurWinkDetector";
}

const char* const CalibratedMultiDurationWinkDetector::kVersionString = "Multi-Duration 0.1.0";
const Interval<float> CalibratedMultiDurationWinkDetector::kPlausibleWinkDurationRangeMs(280.0f, 800.0f);
const Interval<float> CalibratedMultiDurationWinkDetector::kDetectorMagnitudeRange(5.0f, 1000.0f);
const Interval<float> CalibratedMultiDurationWinkDetector::kCalibrationWinkDurationRangeMs(320.0f, 700.0f);

CalibratedMultiDurationWinkDetector::CalibratedMultiDurationWinkDetector(ProximitySensorInterface* sensor)
    : mLastConfirmedDetectionTimeMs(-(kMinWinkIntervalMs + 1.0)),
      mCalibrationMagnitudeRange(0.0f, FLT_MAX),
      mAcceptableMagnitudeRange(0.0f, FLT_MAX),
      mTotalNumCalibrationWinks(0),
      mNumWinksInLastCalibrationInterval(0),
      mIsCalibrationOn(false),
      mIsCalibrated(false),
      mProxSensor(sensor),
      mCalibrationDurationRangeMs(kPlausibleWinkDurationRangeMs),
      mAcceptableDurationRangeMs(kPlausibleWinkDurationRangeMs),
      mNumCalibrationSamples(0),
      mNumOutOfRangeCalibrationSamples(0),
      mActiveDetectorIndex(-1),
      mCalibrationReportDelaySamples(static_cast<int32_t>(GazeService::kExpectedDataRateHertz / 6.0)),
      mHaveHubParamsBeforeSave(false) {}

CalibratedMultiDurationWinkDetector::~CalibratedMultiDurationWinkDetector() { clearDetectors(); }

android::String8 CalibratedMultiDurationWinkDetector::getVersionString() const {
    return android::String8(kVersionString);
}

void CalibratedMultiDurationWinkDetector::reset() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Resetting %d detectors.", static_cast<int>(mDetectors.size()));
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        if (mDetectors[i] != nullptr) mDetectors[i]->reset();
    }
    // The very next detection passes the minimum interval, from -1 ms on.
    mLastConfirmedDetectionTimeMs = -(kMinWinkIntervalMs + 1.0);
}

void CalibratedMultiDurationWinkDetector::resetTimeState() {
    reset();
    mLastConfirmedDetectionTimeMs = -std::numeric_limits<double>::infinity();
}

void CalibratedMultiDurationWinkDetector::clearDetectors() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Clearing %d detectors.", static_cast<int>(mDetectors.size()));
    for (size_t i = 0; i < mDetectors.size(); ++i) delete mDetectors[i];
    mDetectors.clear();
    mDetectorDurationRangesMs.clear();
    mNumCalibrationWinksFromDetector.clear();
    mLastCalibrationDetectionResults.clear();
    mActiveDetectorIndex = -1;
}

void CalibratedMultiDurationWinkDetector::addDetector(BoostingDetector* detector,
                                                      const Interval<float>& durationRangeMs) {
    // The four per-detector vectors always have one entry per detector.
    mDetectors.push(detector);
    mDetectorDurationRangesMs.push(durationRangeMs);
    mNumCalibrationWinksFromDetector.push(0);
    mLastCalibrationDetectionResults.push(kNotFired);
}

BoostingDetector* CalibratedMultiDurationWinkDetector::getActiveDetector() {
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDetectors must not be empty.");
        return nullptr;
    }
    if (mActiveDetectorIndex >= 0 && static_cast<size_t>(mActiveDetectorIndex) < mDetectors.size()) {
        return mDetectors[mActiveDetectorIndex];
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Invalid detector index: %d.", mActiveDetectorIndex);
    return nullptr;
}

bool CalibratedMultiDurationWinkDetector::loadDetectorFromFile(const char* path) {
    FILE* pf = TextFile::openForRead(kTag, path);
    if (pf == nullptr) return false;
    const android::String8 listPath = Paths::resolve(path);
    const android::String8 dir = listPath.getPathDir();
    clearDetectors();
    DetectorOptions options;
    options.frame_rate = GazeService::kExpectedDataRateHertz;

    bool ok = true;
    char name[kNameLineBufferSize];
    for (;;) {
        Interval<float> durationRange;
        // The trailing "\n" also skips blank lines and leading blanks before
        // the name.
        if (fscanf(pf, "%f %f\n", &durationRange.min, &durationRange.max) < 2) {
            if (mDetectors.isEmpty()) {
                __android_log_print(ANDROID_LOG_ERROR, kTag, "No detector loaded from file %s.", listPath.string());
                ok = false;
            }
            break;
        }
        // NaN would pass every later test of the range and match no wink.
        if (!isfinite(durationRange.min) || !isfinite(durationRange.max)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Non-finite duration range %s in file %s.",
                                durationRange.toString().string(), listPath.string());
            clearDetectors();
            ok = false;
            break;
        }
        if (fgets(name, sizeof(name), pf) == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Miss filename of detector.");
            ok = false;
            break;
        }
        char* newline = strchr(name, '\n');
        if (newline != nullptr) *newline = '\0';
        const android::String8 detectorPath = dir.appendPathCopy(name);
        BoostingDetector* detector = new BoostingDetector(options, android::String8(name));
        addDetector(detector, durationRange);
        if (!detector->loadDetectorFromFile(detectorPath.string())) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load detector from file %s.", detectorPath.string());
            clearDetectors();
            ok = false;
            break;
        }
        if (!detector->setMagnitudeRange(kDetectorMagnitudeRange)) {
            ok = false;
            break;
        }
        __android_log_print(ANDROID_LOG_INFO, kTag, "Successfully load detector for duration %s ms from file %s.",
                            durationRange.toString().string(), detectorPath.string());
    }
    fclose(pf);
    return ok;
}

bool CalibratedMultiDurationWinkDetector::isDetectorListWellFormed(const char* path) {
    FILE* pf = TextFile::openForRead(kTag, path);
    if (pf == nullptr) return false;
    const android::String8 resolved = Paths::resolve(path);
    ValueCheck check(kTag, resolved.string());
    char line[kNameLineBufferSize];
    bool expectRange = true;
    int pairs = 0;
    for (int number = 1; check.ok() && fgets(line, sizeof(line), pf) != nullptr; ++number) {
        char field[32];
        snprintf(field, sizeof(field), "line %d", number);
        const size_t length = strlen(line);
        if (length + 1 == sizeof(line) && line[length - 1] != '\n') {
            check.refuse(field, "(too long)", "longer than a name may be");
            break;
        }
        if (line[strspn(line, " \t\r\n")] == '\0') continue;  // blank lines are skipped before either line
        if (line[length - 1] == '\n') line[length - 1] = '\0';
        if (!expectRange) {
            expectRange = true;
            ++pairs;
            continue;
        }
        Interval<float> range;
        int consumed = 0;
        if (sscanf(line, "%f %f %n", &range.min, &range.max, &consumed) != 2 || line[consumed] != '\0') {
            check.refuse(field, line, "not a duration range of two numbers");
        } else if (check.ordered(field, range.min, range.max)) {
            check.within(field, range.min, 0.0, FLT_MAX);
        }
        expectRange = false;
    }
    fclose(pf);
    if (check.ok() && !expectRange) check.refuse("last range", "(no name line)", "a range without a detector file");
    if (check.ok() && pairs == 0) check.refuse("detectors", "0", "no detector listed");
    return check.ok();
}

int CalibratedMultiDurationWinkDetector::update(long long timestampNanos, const float* newSamples, int numSamples) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return -1;
    }
    if (numSamples <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Number of samples must be larger than zero.");
        return -1;
    }
    if (mIsCalibrationOn && !updateCalibrationOnSamples(newSamples, numSamples)) return -1;

    const double timeMs = static_cast<double>(timestampNanos) * 1e-6;
    GestureInfo info;
    if (!classifyNewSamples(timeMs, newSamples, numSamples, &info)) return -1;

    const double sinceLast = timeMs - mLastConfirmedDetectionTimeMs;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Time since last detected eye gesture: %.0lf ms", sinceLast);
    if (sinceLast < kMinWinkIntervalMs) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "Time since last detection is smaller than single gesture min interval %f ms. Ignored.",
                            kMinWinkIntervalMs);
        return -1;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Wink magnitude=%.0f, duration=%.0f ms",
                        static_cast<double>(info.magnitude), static_cast<double>(info.duration));
    if (mIsCalibrationOn) {
        // A calibration wink restarts the interval whether or not it is kept.
        mLastConfirmedDetectionTimeMs = timeMs;
        return updateCalibrationOnWink(info) ? GazeServiceInterface::WINK : -1;
    }
    if (!isWinkConsistentWithCalibration(info)) return -1;  // does not restart the interval
    mLastConfirmedDetectionTimeMs = timeMs;
    return GazeServiceInterface::WINK;
}

bool CalibratedMultiDurationWinkDetector::classifyNewSamples(double timeMs, const float* newSamples, int numSamples,
                                                             GestureInfo* info) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return false;
    }
    return mIsCalibrationOn ? classifyNewSamplesWithAllDetectors(timeMs, newSamples, numSamples, info)
                            : classifyNewSamplesWithActiveDetector(timeMs, newSamples, numSamples, info);
}

bool CalibratedMultiDurationWinkDetector::classifyNewSamplesWithActiveDetector(double timeMs, const float* newSamples,
                                                                               int, GestureInfo* info) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return false;
    }
    BoostingDetector* detector = getActiveDetector();
    if (detector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not get active detector.");
        return false;
    }
    if (!detector->normalizeFrameRateAndDetectGesture(timeMs, newSamples[0], info)) return false;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Wink detection from duration detector %d.", mActiveDetectorIndex);
    return true;
}

bool CalibratedMultiDurationWinkDetector::classifyNewSamplesWithAllDetectors(double timeMs, const float* newSamples,
                                                                             int, GestureInfo* info) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return false;
    }
    if (info == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "info must not be NULL.");
        return false;
    }
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No detector.");
        return false;
    }
    const size_t n = mDetectors.size();
    if (mLastCalibrationDetectionResults.size() != n) return false;  // cannot happen: kept in step with mDetectors

    GestureInfo local;
    float magnitudeSum = 0.0f;
    float durationSum = 0.0f;
    int numFired = 0;
    for (size_t i = 0; i < n; ++i) {
        BoostingDetector* detector = mDetectors[i];
        if (detector == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "detector is NULL.");
            return false;
        }
        int& sinceFired = mLastCalibrationDetectionResults.editItemAt(i);
        if (detector->normalizeFrameRateAndDetectGesture(timeMs, newSamples[0], &local)) {
            sinceFired = 0;
            magnitudeSum += local.magnitude;
            durationSum += local.duration;
            ++numFired;
        } else if (sinceFired != kNotFired) {
            ++sinceFired;
        }
    }
    if (numFired > 0) {
        mAverageCalibrationWinkInfo.magnitude = magnitudeSum / static_cast<float>(numFired);
        mAverageCalibrationWinkInfo.duration = durationSum / static_cast<float>(numFired);
    }
    // Report once the detections have settled: some detector has been silent
    // for exactly the report delay.
    for (size_t i = 0; i < n; ++i) {
        if (mLastCalibrationDetectionResults[i] == mCalibrationReportDelaySamples) {
            *info = mAverageCalibrationWinkInfo;
            return true;
        }
    }
    return false;
}

bool CalibratedMultiDurationWinkDetector::isWinkConsistentWithCalibration(const GestureInfo& info) const {
    // The duration gate is the fixed plausible range, not the calibrated one.
    if (!kPlausibleWinkDurationRangeMs.contains(info.duration)) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Bad detection. Duration %f ms is out of range %s ms",
                            static_cast<double>(info.duration), kPlausibleWinkDurationRangeMs.toString().string());
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Good wink duration %f ms is within range %s ms",
                        static_cast<double>(info.duration), kPlausibleWinkDurationRangeMs.toString().string());
    if (!mAcceptableMagnitudeRange.contains(info.magnitude)) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Bad detection. Magnitude %f is out of range %s",
                            static_cast<double>(info.magnitude), mAcceptableMagnitudeRange.toString().string());
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Good wink magnitude %f is within range %s",
                        static_cast<double>(info.magnitude), mAcceptableMagnitudeRange.toString().string());
    return true;
}

android::String8 CalibratedMultiDurationWinkDetector::getDebugString() const {
    android::String8 out = android::String8::format("mDetectors #: %d", static_cast<int>(mDetectors.size()));
    out.appendFormat("\nActiveDetectorIndex: %d", mActiveDetectorIndex);
    if (mActiveDetectorIndex >= 0 && static_cast<size_t>(mActiveDetectorIndex) < mDetectors.size()) {
        out.appendFormat("\nActive detector duration range: %sms",
                         mDetectorDurationRangesMs[mActiveDetectorIndex].toString().string());
        const BoostingDetector* active = mDetectors[mActiveDetectorIndex];
        out.appendFormat("\nActive detector: %s", active != nullptr ? active->getDebugString().string() : "NULL");
    }
    out.appendFormat(
            "\nmLastConfirmedDetectionTimeMs: %lf\nmCalibrationMagnitudeRange: %s\nmAcceptableMagnitudeRange: %s\n"
            "mCalibrationDurationRangeMs: %s\nmAcceptableDurationRangeMs: %s\nmTotalNumCalibrationWinks: %d\n"
            "mIsCalibrationOn: %d\nmIsCalibrated: %d\nmNumWinksInLastCalibrationInterval: %d",
            mLastConfirmedDetectionTimeMs, mCalibrationMagnitudeRange.toString().string(),
            mAcceptableMagnitudeRange.toString().string(), mCalibrationDurationRangeMs.toString().string(),
            mAcceptableDurationRangeMs.toString().string(), mTotalNumCalibrationWinks, mIsCalibrationOn ? 1 : 0,
            mIsCalibrated ? 1 : 0, mNumWinksInLastCalibrationInterval);
    return out;
}

}  // namespace velto
