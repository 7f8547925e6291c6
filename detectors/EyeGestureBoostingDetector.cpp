#include "detectors/EyeGestureBoostingDetector.h"

#include <log/log.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <limits>

#include "classifier/TextFile.h"
#include "service/GazeService.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:EyeGestureBoostingDetector";
// The very first gesture is never inside the minimum interval of 500 ms.
const double kNoGestureTimeMs = -500.0;
}  // namespace

const Interval<float> EyeGestureBoostingDetector::kDetectorMagnitudeLimits(5.0f, 1000.0f);

EyeGestureBoostingDetector::EyeGestureBoostingDetector(EyeGesture gesture)
    : mEyeGesture(gesture), mLastGestureTimeMs(kNoGestureTimeMs), mMagnitudeRange(5.0f, 1000.0f) {}

EyeGestureBoostingDetector::EyeGestureBoostingDetector(EyeGesture gesture,
                                                       const android::Vector<BoostingDetector*>& detectors)
    : EyeGestureBoostingDetector(gesture) {
    for (size_t i = 0; i < detectors.size(); ++i) {
        mDetectors.push(detectors[i]);
        mNumPositive.push(0);
    }
}

EyeGestureBoostingDetector::~EyeGestureBoostingDetector() { clearDetectors(); }

void EyeGestureBoostingDetector::clearDetectors() {
    for (size_t i = 0; i < mDetectors.size(); ++i) delete mDetectors[i];
    mDetectors.clear();
    mNumPositive.clear();
}

bool EyeGestureBoostingDetector::loadDetectorFromFile(const char* path) {
    FILE* pf = TextFile::openForRead(kTag, path);
    if (pf == nullptr) return false;
    const android::String8 listPath = Paths::resolve(path);
    clearDetectors();
    DetectorOptions options;
    options.frame_rate = GazeService::kExpectedDataRateHertz;
    const android::String8 dir = listPath.getPathDir();

    char line[kListLineBufferSize];
    while (fgets(line, sizeof(line), pf) != nullptr) {
        char* newline = strchr(line, '\n');
        if (newline != nullptr) *newline = '\0';
        const android::String8 detectorPath = dir.appendPathCopy(line);
        BoostingDetector* detector = new BoostingDetector(options, android::String8(line));
        mDetectors.push(detector);
        mNumPositive.push(0);
        if (!detector->loadDetectorFromFile(detectorPath.string())) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load detector from file %s.", detectorPath.string());
            clearDetectors();
            fclose(pf);
            return false;
        }
        __android_log_print(ANDROID_LOG_INFO, kTag, "Successfully load detector from file %s.", detectorPath.string());
    }
    fclose(pf);
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No detector loaded from file %s.", listPath.string());
        return false;
    }
    return true;
}

bool EyeGestureBoostingDetector::setMagnitudeRange(const Interval<float>& range) {
    mMagnitudeRange = range;
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Detectors must be loaded before setting magnitude range.");
        return false;
    }
    const Interval<float> widened(std::max(range.min * kDetectorRangeMinFactor, kDetectorMagnitudeLimits.min),
                                  std::min(range.max * kDetectorRangeMaxFactor, kDetectorMagnitudeLimits.max));
    for (size_t i = 0; i < mDetectors.size(); ++i) mDetectors[i]->setMagnitudeRange(widened);
    return true;
}

int EyeGestureBoostingDetector::update(long long timestamp, const float* newSamples, int numSamples) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return -1;
    }
    if (numSamples < 1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "numSamples must >= 1.");
        return -1;
    }
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDetectors must not be empty.");
        return -1;
    }
    const double timeMs = static_cast<double>(timestamp) * 1e-6;
    bool anyPositive = false;
    float largestMagnitude = 0.0f;
    // Every detector is fed, whatever the others answered, so all windows
    // stay in step.
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        BoostingDetector::GestureInfo info;
        if (mDetectors[i]->normalizeFrameRateAndDetectGesture(timeMs, newSamples[0], &info)) {
            anyPositive = true;
            ++mNumPositive.editItemAt(i);
            largestMagnitude = std::max(largestMagnitude, info.magnitude);
            __android_log_print(ANDROID_LOG_INFO, kTag, "Positive response from detector %d.", static_cast<int>(i));
        }
    }
    if (!anyPositive) return -1;
    if (!mMagnitudeRange.contains(largestMagnitude)) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Bad %s magnitude %f out of range %s.",
                            GazeService::eyeGestureAsString8(mEyeGesture).string(),
                            static_cast<double>(largestMagnitude), mMagnitudeRange.toString().string());
        return -1;
    }
    const double sinceLast = timeMs - mLastGestureTimeMs;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Time since last detected eye gesture: %.0lf ms", sinceLast);
    if (sinceLast < kMinGestureIntervalMs) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "Time since last detection is smaller than gesture min interval %f ms. Ignored.",
                            kMinGestureIntervalMs);
        return -1;
    }
    mLastGestureTimeMs = timeMs;
    return mEyeGesture;
}

void EyeGestureBoostingDetector::resetTimeState() {
    reset();
    // The new clock may start anywhere, even below zero.
    mLastGestureTimeMs = -std::numeric_limits<double>::infinity();
}

void EyeGestureBoostingDetector::reset() {
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        mDetectors[i]->reset();
        mNumPositive.editItemAt(i) = 0;
    }
}

android::String8 EyeGestureBoostingDetector::getVersionString() const {
    return android::String8("Simple Detector 0.1.1");
}

android::String8 EyeGestureBoostingDetector::getDebugString() const {
    android::String8 out("num positive: { ");
    for (size_t i = 0; i < mNumPositive.size(); ++i) out.appendFormat("%d ", mNumPositive[i]);
    out.append("}\n");
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        out.appendFormat("mDetectors[%d]: %s\n", static_cast<int>(i),
                         mDetectors[i] != nullptr ? mDetectors[i]->getDebugString().string() : "NULL");
    }
    return out;
}

}  // namespace velto
