// The calibration half of CalibratedMultiDurationWinkDetector: collecting the
// wearer's winks, deriving the acceptable ranges and the active detector, the
// hub's low-power thresholds, and the calibration files.
#include <errno.h>
#include <float.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "calibration/DonDoffCalibrator.h"
#include "classifier/FloatConversion.h"
#include "classifier/TextFile.h"
#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "sensor/ProximitySensorInterface.h"
#include "veltoutils/AtomicFile.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"
#include "veltoutils/ValueCheck.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:MultiDurWinkDetector";

// Two calibration winks belong together when the weaker has at least this
// share of the stronger's magnitude and they differ by at most
// kMaxMagnitudeDifference.
const float kMinMagnitudeRatio = 0.8f;
const float kMaxMagnitudeDifference = 100.0f;
// A detector whose trained range misses the wearer's by more than this on
// either side is not a candidate.
const float kDetectorRangeSlackMs = 50.0f;
// Margin of the hub's wink bounds around the acceptable magnitudes.
const int kLowPowerMagnitudeMargin = 10;

}  // namespace

bool CalibratedMultiDurationWinkDetector::startCalibrationInterval() {
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Mark start of calibration session. Need at most %d winks to calibrate.",
                        kMaxNumCalibrationWinks);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor must not be NULL in startCalibrationInterval.");
        return false;
    }
    if (mIsCalibrationOn) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Calibration is already on. Why do you call startCalibrationInterval again?!");
        return false;
    }
    if (mLastCalibrationDetectionResults.size() != mDetectors.size()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "mLastCalibrationDetectionResults and mDetectors must have equal size.");
        return false;
    }
    if (mNumCalibrationWinksFromDetector.size() != mDetectors.size()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "mNumCalibrationWinksFromDetector and mDetectors must have equal size.");
        return false;
    }
    mNumWinksInLastCalibrationInterval = 0;
    mCalibrationWinks.clear();
    mIsCalibrated = false;
    mIsCalibrationOn = true;
    mNumCalibrationSamples = 0;
    mNumOutOfRangeCalibrationSamples = 0;
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        mNumCalibrationWinksFromDetector.editItemAt(i) = 0;
        mLastCalibrationDetectionResults.editItemAt(i) = kNotFired;
    }
    return true;
}

bool CalibratedMultiDurationWinkDetector::endCalibrationInterval() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Mark end of calibration session.");
    if (!mIsCalibrationOn) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Calibration is already off. Why do you call endCalibrationInterval again?!");
        return false;
    }
    mIsCalibrationOn = false;
    return true;
}

bool CalibratedMultiDurationWinkDetector::needMoreCalibrationEyeGestures() const {
    if (!mIsCalibrationOn) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "needMoreCalibrationEyeGestures should not be called out of calibration session.");
        return false;
    }
    return !mIsCalibrated;
}

bool CalibratedMultiDurationWinkDetector::clearCalibration() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Clear all in memory calibration data.");
    mTotalNumCalibrationWinks = 0;
    mNumWinksInLastCalibrationInterval = 0;
    mCalibrationMagnitudeRange = Interval<float>(0.0f, FLT_MAX);
    mAcceptableMagnitudeRange = Interval<float>(0.0f, FLT_MAX);
    mCalibrationDurationRangeMs = kPlausibleWinkDurationRangeMs;
    mAcceptableDurationRangeMs = kPlausibleWinkDurationRangeMs;
    mCalibrationWinks.clear();
    mIsCalibrated = false;
    mActiveDetectorIndex = -1;
    return true;
}

bool CalibratedMultiDurationWinkDetector::updateCalibrationOnSamples(const float* newSamples, int) {
    if (newSamples == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "newSamples must not be NULL.");
        return false;
    }
    // Counts of readings off the don range tell whether the device was worn.
    const uint32_t value = FloatConversion::toUint32(newSamples[0]) & 0xFFFF;
    ++mNumCalibrationSamples;
    if (value < DonDoffCalibrator::DON_VALUE_LOWER_BOUND || value > DonDoffCalibrator::DON_VALUE_UPPER_BOUND) {
        ++mNumOutOfRangeCalibrationSamples;
    }
    return true;
}

bool CalibratedMultiDurationWinkDetector::updateCalibrationOnWink(const GestureInfo& info) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Try to update wink calibration.");
    if (!mIsCalibrationOn) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mIsCalibrationOn is false. updateCalibrationOnWink must not be called.");
        return false;
    }
    if (!(info.magnitude > 0.0f)) {  // also NaN, which would spoil every range
        __android_log_print(ANDROID_LOG_ERROR, kTag, "magnitude must be positive.");
        return false;
    }
    if (!kCalibrationWinkDurationRangeMs.contains(info.duration)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Wink duration is out of the required range: %.0f ms",
                            static_cast<double>(info.duration));
        return false;
    }
    if (mIsCalibrated) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Wink detection has been calibrated. Ignore this wink.");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, ">>>>>>>>> WINK AS CALIBRATION <<<<<<<<<<<");
    ++mTotalNumCalibrationWinks;
    ++mNumWinksInLastCalibrationInterval;
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Total number of calibration winks=%d, number of calibration winks of last session=%d",
                        mTotalNumCalibrationWinks, mNumWinksInLastCalibrationInterval);
    mCalibrationWinks.push(info);
    mIsCalibrated = !updateCalibrationAttributeRange();

    // Credit every detector that fired for this wink.
    const size_t n = std::min(mNumCalibrationWinksFromDetector.size(), mLastCalibrationDetectionResults.size());
    for (size_t i = 0; i < n; ++i) {
        const int sinceFired = mLastCalibrationDetectionResults[i];
        if (sinceFired <= mCalibrationReportDelaySamples) ++mNumCalibrationWinksFromDetector.editItemAt(i);
        __android_log_print(ANDROID_LOG_INFO, kTag, "Detector %d fires %d frames ago and gets %d calibration winks so far.",
                            static_cast<int>(i), sinceFired, mNumCalibrationWinksFromDetector[i]);
    }
    chooseBestDetectorBasedOnCalibrationDuration();
    return true;
}

void CalibratedMultiDurationWinkDetector::includeInCalibrationRanges(const GestureInfo& wink) {
    mCalibrationMagnitudeRange.min = std::min(mCalibrationMagnitudeRange.min, wink.magnitude);
    mCalibrationMagnitudeRange.max = std::max(mCalibrationMagnitudeRange.max, wink.magnitude);
    mCalibrationDurationRangeMs.min = std::min(mCalibrationDurationRangeMs.min, wink.duration);
    mCalibrationDurationRangeMs.max = std::max(mCalibrationDurationRangeMs.max, wink.duration);
}

bool CalibratedMultiDurationWinkDetector::updateCalibrationAttributeRange() {
    if (mCalibrationWinks.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No calibration wink recorded. Do nothing.");
        return true;
    }
    const GestureInfo& newest = mCalibrationWinks[mCalibrationWinks.size() - 1];
    if (mCalibrationWinks.size() == 1) {
        mCalibrationMagnitudeRange = Interval<float>(newest.magnitude, newest.magnitude);
        mCalibrationDurationRangeMs = Interval<float>(newest.duration, newest.duration);
    } else {
        includeInCalibrationRanges(newest);
    }

    bool foundOutlier = false;
    if (!areCalibrationWinkMagnitudesConsistent(mCalibrationMagnitudeRange.min, mCalibrationMagnitudeRange.max)) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "There is outlier in calibration winks.");
        const float strongest = mCalibrationMagnitudeRange.max;
        for (size_t i = mCalibrationWinks.size(); i-- > 0;) {
            const GestureInfo wink = mCalibrationWinks[i];
            if (!areCalibrationWinkMagnitudesConsistent(wink.magnitude, strongest)) {
                __android_log_print(ANDROID_LOG_INFO, kTag, "Remove outlier with magnitude %.0f, and duration %.0f ms",
                                    static_cast<double>(wink.magnitude), static_cast<double>(wink.duration));
                mCalibrationWinks.removeAt(i);
            }
        }
        computeCalibrationAttributeRange();
        foundOutlier = true;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Calibration wink magnitude range: %s, duration range %s ms.",
                        mCalibrationMagnitudeRange.toString().string(), mCalibrationDurationRangeMs.toString().string());
    computeAcceptableWinkAttributeRange();
    // Two consistent winks calibrate; after an outlier a third is needed. The
    // count includes removed outliers.
    return mNumWinksInLastCalibrationInterval < (foundOutlier ? 3 : 2);
}

bool CalibratedMultiDurationWinkDetector::areCalibrationWinkMagnitudesConsistent(float a, float b) {
    const float lo = std::min(a, b);
    const float hi = std::max(a, b);
    return lo / hi >= kMinMagnitudeRatio && hi - lo <= kMaxMagnitudeDifference;
}

void CalibratedMultiDurationWinkDetector::computeCalibrationAttributeRange() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Compute calibration attribute range from scratch.");
    mCalibrationMagnitudeRange = Interval<float>(FLT_MAX, 0.0f);
    mCalibrationDurationRangeMs = Interval<float>(FLT_MAX, 0.0f);
    for (size_t i = 0; i < mCalibrationWinks.size(); ++i) includeInCalibrationRanges(mCalibrationWinks[i]);
}

void CalibratedMultiDurationWinkDetector::computeAcceptableWinkAttributeRange() {
    // Magnitudes: about -28 % .. +80 % around the centre, at least 10 and at
    // most 100 below it and at least 10 and at most 200 above it.
    const float c = (mCalibrationMagnitudeRange.min + mCalibrationMagnitudeRange.max) * 0.5f;
    mAcceptableMagnitudeRange.min = std::max(std::min(c * 0.72f, c - 10.0f), c - 100.0f);
    mAcceptableMagnitudeRange.max = std::max(std::min(c * 1.8f, c + 200.0f), c + 10.0f);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Acceptable wink magnitude range: %s",
                        mAcceptableMagnitudeRange.toString().string());

    // Durations: a margin growing with the centre, capped at 200 ms, at least
    // 50 ms beyond the calibration winks, within the plausible range.
    const float d = (mCalibrationDurationRangeMs.min + mCalibrationDurationRangeMs.max) * 0.5f;
    const float margin = std::min(50.0f + 0.25f * d, 200.0f);
    mAcceptableDurationRangeMs.min =
            std::max(std::min(d - margin, mCalibrationDurationRangeMs.min - 50.0f), kPlausibleWinkDurationRangeMs.min);
    mAcceptableDurationRangeMs.max =
            std::min(std::max(d + margin, mCalibrationDurationRangeMs.max + 50.0f), kPlausibleWinkDurationRangeMs.max);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Acceptable wink duration range: %s ms",
                        mAcceptableDurationRangeMs.toString().string());
}

float CalibratedMultiDurationWinkDetector::computeOverlapRatio(const Interval<float>& a, const Interval<float>& b) {
    const float total = std::max(a.max - a.min, 0.0f) + std::max(b.max - b.min, 0.0f);
    if (total <= 0.0f || a.min > a.max || b.min > b.max || a.min >= b.max || a.max <= b.min) return 0.0f;
    return 2.0f * std::max(std::min(a.max, b.max) - std::max(a.min, b.min), 0.0f) / total;
}

void CalibratedMultiDurationWinkDetector::chooseBestDetectorBasedOnCalibrationDuration() {
    if (mDetectors.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No detectors have been loaded.");
        return;
    }
    if (mDetectors.size() != mDetectorDurationRangesMs.size() ||
        mDetectors.size() != mNumCalibrationWinksFromDetector.size()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "mDetectors and mDetectorDurationRangesMs must have same number of elements.");
        return;
    }
    const Interval<float>& user = mAcceptableDurationRangeMs;
    __android_log_print(ANDROID_LOG_INFO, kTag, "User wink duration: %s", user.toString().string());

    // The first detector that caught any calibration wink is taken as it is;
    // the others (and it again) must fit the wearer's durations to win.
    size_t start = 0;
    int bestCount = 0;
    float bestRatio = 0.0f;
    for (size_t i = 0; i < mDetectors.size(); ++i) {
        if (mNumCalibrationWinksFromDetector[i] != 0) {
            start = i;
            mActiveDetectorIndex = static_cast<int32_t>(i);
            bestCount = mNumCalibrationWinksFromDetector[i];
            bestRatio = computeOverlapRatio(mDetectorDurationRangesMs[i], user);
            __android_log_print(ANDROID_LOG_INFO, kTag, "First candidate. index=%d, num detected winks=%d, overlap ratio=%f.",
                                static_cast<int>(i), bestCount, static_cast<double>(bestRatio));
            break;
        }
    }
    for (size_t j = start; j < mDetectors.size(); ++j) {
        const Interval<float>& range = mDetectorDurationRangesMs[j];
        if (range.min <= range.max && range.min - kDetectorRangeSlackMs <= user.min &&
            range.max + kDetectorRangeSlackMs >= user.max) {
            const int count = mNumCalibrationWinksFromDetector[j];
            const float ratio = computeOverlapRatio(range, user);
            if (count > bestCount || (count == bestCount && ratio > bestRatio)) {
                mActiveDetectorIndex = static_cast<int32_t>(j);
                __android_log_print(ANDROID_LOG_INFO, kTag, "Better candidate. index=%d, num detected winks=%d, overlap ratio=%f.",
                                    static_cast<int>(j), count, static_cast<double>(ratio));
                bestCount = count;
                bestRatio = ratio;
            }
        } else {
            __android_log_print(ANDROID_LOG_INFO, kTag, "Skip detector %d due to mismatched duration range.",
                                static_cast<int>(j));
        }
    }
    const bool valid = mActiveDetectorIndex >= 0 && static_cast<size_t>(mActiveDetectorIndex) < mDetectors.size();
    const Interval<float> activeRange = valid ? mDetectorDurationRangesMs[mActiveDetectorIndex] : Interval<float>();
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Active detector index=%d, max overlap ratio of detector duration %s ms and user wink duration %s ms=%f",
                        mActiveDetectorIndex, activeRange.toString().string(), user.toString().string(),
                        static_cast<double>(bestRatio));
}

bool CalibratedMultiDurationWinkDetector::saveHighPowerCalibration(const char* path) const {
    const android::String8 resolved = Paths::resolve(path);
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Save calibration data to file %s: Magnitude range=%s, Duration range=%s ms, active detector index=%d.",
                        resolved.string(), mCalibrationMagnitudeRange.toString().string(),
                        mCalibrationDurationRangeMs.toString().string(), mActiveDetectorIndex);
    if (path == nullptr || !Utils::ensurePathExists(resolved.string(), false)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not create parent folder for file: %s", resolved.string());
        return false;
    }
    const android::String8 text = android::String8::format(
            "%f %f %f %f %d", static_cast<double>(mCalibrationMagnitudeRange.min),
            static_cast<double>(mCalibrationMagnitudeRange.max), static_cast<double>(mCalibrationDurationRangeMs.min),
            static_cast<double>(mCalibrationDurationRangeMs.max), mActiveDetectorIndex);
    // Replaced whole: a full disk keeps the earlier calibration.
    AtomicFile file(path);
    if (!file.stage(text) && file.failedStep() == AtomicFile::CREATE) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not open file %s for write: %s", resolved.string(),
                            strerror(errno));
        return false;
    }
    if (file.failedStep() != AtomicFile::NONE || !file.commit()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not write calibration data to file %s: %s", resolved.string(),
                            strerror(errno));
        return false;
    }
    return true;
}

bool CalibratedMultiDurationWinkDetector::loadHighPowerCalibration(const char* path) {
    const android::String8 resolved = Paths::resolve(path);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Load calibration data from file %s.", resolved.string());
    FILE* pf = path != nullptr ? fopen(resolved.string(), "rt") : nullptr;
    if (pf == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not open file %s for read: %s", resolved.string(),
                            strerror(errno));
        return false;
    }
    // Each value is checked before it replaces the one in force: magnitudes
    // of a wink the detectors can report, durations of a plausible wink, and
    // the index of a loaded detector. Ranges read before a failure stay.
    ValueCheck check(kTag, resolved.string());
    const bool ok = readHighPowerCalibration(pf, resolved.string(), &check);
    fclose(pf);
    return ok;
}

bool CalibratedMultiDurationWinkDetector::readHighPowerCalibration(FILE* pf, const char* path, ValueCheck* check) {
    Interval<float> magnitude;
    if (fscanf(pf, "%f %f ", &magnitude.min, &magnitude.max) != 2) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not read calibration magnitude range from file %s: %s", path,
                            strerror(errno));
        return false;
    }
    if (!checkRange(check, "calibration magnitude range", magnitude, kDetectorMagnitudeRange)) return false;
    mCalibrationMagnitudeRange = magnitude;

    Interval<float> duration;
    if (fscanf(pf, "%f %f ", &duration.min, &duration.max) != 2) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not read calibration duration range from file %s: %s", path,
                            strerror(errno));
        return false;
    }
    if (!checkRange(check, "calibration duration range", duration, kPlausibleWinkDurationRangeMs)) return false;
    mCalibrationDurationRangeMs = duration;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Load calibration data: Magnitude range=%s, Duration range=%s ms.",
                        mCalibrationMagnitudeRange.toString().string(), mCalibrationDurationRangeMs.toString().string());

    int32_t index = -1;
    const bool haveIndex = fscanf(pf, "%d ", &index) == 1;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Load active detector index: %d", haveIndex ? index : mActiveDetectorIndex);
    if (!haveIndex) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load active detector index from file %s: %s", path,
                            strerror(errno));
        return false;
    }
    if (!check->within("active detector index", index, 0, static_cast<double>(mDetectors.size()) - 1)) return false;
    mActiveDetectorIndex = index;
    computeAcceptableWinkAttributeRange();
    return true;
}

bool CalibratedMultiDurationWinkDetector::checkRange(ValueCheck* check, const char* field, const Interval<float>& range,
                                                     const Interval<float>& bounds) {
    return check->ordered(field, range.min, range.max) && check->within(field, range.min, bounds.min, bounds.max) &&
           check->within(field, range.max, bounds.min, bounds.max);
}

bool CalibratedMultiDurationWinkDetector::computeMCUParams(MCUParams* params) {
    if (params == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "params must not be NULL in updateMCUParams.");
        return false;
    }
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor must not be NULL in updateMCUParams.");
        return false;
    }
    if (mNumCalibrationSamples == 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "There are no calibration values.");
        return false;
    }
    if (mNumOutOfRangeCalibrationSamples > mNumCalibrationSamples / 2) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "There are too many out-of-range values.");
        return false;
    }
    if (!mProxSensor->getMCUParams(params)) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Can not get MCU params from prox-sensor. Using default don/doff parameters");
        *params = MCUParams();
    }
    // The hub's bounds are 16 bits wide: refuse magnitudes that would wrap.
    ValueCheck check(kTag, "the acceptable wink magnitudes");
    if (!check.ordered("acceptable magnitude range", mAcceptableMagnitudeRange.min, mAcceptableMagnitudeRange.max) ||
        !check.within("acceptable magnitude maximum", mAcceptableMagnitudeRange.max, 0.0,
                      0xFFFF - kLowPowerMagnitudeMargin)) {
        return false;
    }
    // Integer parts, widened so that the margin never overflows.
    const int64_t acceptableMax = FloatConversion::truncToInt(mAcceptableMagnitudeRange.max);
    const int64_t acceptableMin = FloatConversion::truncToInt(mAcceptableMagnitudeRange.min);
    const unsigned short high = static_cast<unsigned short>(acceptableMax + kLowPowerMagnitudeMargin);
    const unsigned short low =
            mAcceptableMagnitudeRange.min >= static_cast<float>(kLowPowerMagnitudeMargin)
                    ? static_cast<unsigned short>(acceptableMin - kLowPowerMagnitudeMargin)
                    : 0;
    return params->computeWinkParams(high, low);
}

bool CalibratedMultiDurationWinkDetector::applyMCUParamsToProxSensor(const MCUParams& params) {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor must not be NULL in applyMCUParamsToProxSensor.");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Writing to MCU: %s...", params.toString().string());
    if (!mProxSensor->setMCUParams(params)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to apply the MCU params = %s.", params.toString().string());
        return false;
    }
    return true;
}

bool CalibratedMultiDurationWinkDetector::saveAndApplyLowPowerCalibration(const char* path) {
    MCUParams params;
    if (!computeMCUParams(&params) || !params.checkValues("the computed wink parameters")) return false;
    // What the hub holds now, to put back should the save fail.
    mHaveHubParamsBeforeSave = mProxSensor != nullptr && mProxSensor->getMCUParams(&mHubParamsBeforeSave);
    if (!applyMCUParamsToProxSensor(params)) return false;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Write MCU params to calibration... MCUParams=%s",
                        params.toString().string());
    if (params.saveToFile(android::String8(path))) return true;
    restoreHubParamsAfterFailedSave();
    return false;
}

void CalibratedMultiDurationWinkDetector::restoreHubParamsAfterFailedSave() {
    if (!mHaveHubParamsBeforeSave) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "The calibration was not saved, and the hub's earlier parameters are unknown: "
                            "it keeps the new ones until a calibration is loaded.");
    } else if (mProxSensor == nullptr || !mProxSensor->setMCUParams(mHubParamsBeforeSave)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "The calibration was not saved, and the hub's earlier parameters %s could not be restored.",
                            mHubParamsBeforeSave.toString().string());
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "The calibration was not saved; the hub's earlier parameters are restored: %s",
                            mHubParamsBeforeSave.toString().string());
    }
}

bool CalibratedMultiDurationWinkDetector::loadLowPowerCalibration(const char* path) {
    MCUParams params;
    if (!params.loadCheckedFromFile(android::String8(path))) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot read microparams from the calibration file. Not setting them.");
        return false;
    }
    return applyMCUParamsToProxSensor(params);
}

bool CalibratedMultiDurationWinkDetector::loadCalibration(const char* path) {
    if (!loadHighPowerCalibration(path) || !loadLowPowerCalibration(MCUParams::kMcuParamsFilename.string())) {
        return false;
    }
    mIsCalibrated = true;
    return true;
}

bool CalibratedMultiDurationWinkDetector::applyAndSaveCalibration(const char* path) {
    // The two files and the hub belong together: if the second file cannot be
    // saved, the hub and the parameter file go back to what they held.
    android::String8 oldParams;
    const bool hadParams = Utils::readFileContents(MCUParams::kMcuParamsFilename.string(), false, &oldParams) == 0;
    if (!saveAndApplyLowPowerCalibration(MCUParams::kMcuParamsFilename.string())) return false;
    if (saveHighPowerCalibration(path)) return true;
    restoreHubParamsAfterFailedSave();
    const bool restored = hadParams ? AtomicFile::write(MCUParams::kMcuParamsFilename.string(), oldParams)
                                    : remove(Paths::resolve(MCUParams::kMcuParamsFilename).string()) == 0;
    if (!restored) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not restore the earlier parameter file %s: %s",
                            Paths::resolve(MCUParams::kMcuParamsFilename).string(), strerror(errno));
    }
    return false;
}

}  // namespace velto
