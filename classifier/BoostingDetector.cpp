#include "classifier/BoostingDetector.h"

#include <log/log.h>

namespace velto {

namespace {
const char kTag[] = "GazeService:BoostingDetector";
}

BoostingDetector::BoostingDetector() : BoostingDetector(DetectorOptions()) {}

BoostingDetector::BoostingDetector(const DetectorOptions& options) : BoostingDetector(options, android::String8()) {}

BoostingDetector::BoostingDetector(const DetectorOptions& options, const android::String8& name)
    : mName(name),
      mClassificationHistory(kClassificationHistorySize),
      mSample(nullptr),
      mClassifier(nullptr),
      mIsSuppressionOn(false),
      mFrameRateNormalizer(nullptr),
      mPrevTimestampMs(0.0),
      mNumFramesSinceReset(0),
      mOptions(options) {}

BoostingDetector::~BoostingDetector() {
    delete mSample;
    delete mClassifier;
    delete mFrameRateNormalizer;
}

void BoostingDetector::reset() {
    if (mSample != nullptr) mSample->clear();
    mClassificationHistory.clear();
    if (mFrameRateNormalizer != nullptr) mFrameRateNormalizer->reset();
    mNumFramesSinceReset = 0;
    mIsSuppressionOn = false;
    mPrevTimestampMs = 0.0;
}

bool BoostingDetector::loadDetectorFromFile(const char* path) {
    delete mClassifier;
    mClassifier = new CascadeClassifier();
    if (!mClassifier->loadFromFile(path)) {
        delete mClassifier;
        mClassifier = nullptr;
        return false;
    }
    mClassifier->setPosSampleMagnitudeRange(mOptions.pos_sample_magnitude_range);
    mClassifier->setMaxMinSampleValue(mOptions.max_min_sample_value);
    mClassifier->setMinMaxSampleValue(mOptions.min_max_sample_value);
    return true;
}

bool BoostingDetector::setMagnitudeRange(const Interval<float>& range) {
    if (mClassifier == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Classifier must be loaded before setting magnitude range.");
        return false;
    }
    mOptions.pos_sample_magnitude_range = range;
    mClassifier->setPosSampleMagnitudeRange(range);
    return true;
}

void BoostingDetector::setFrameRate(float fps) {
    if (fps == mOptions.frame_rate) return;
    mOptions.frame_rate = fps;
    if (mFrameRateNormalizer != nullptr) {
        delete mFrameRateNormalizer;
        mFrameRateNormalizer = new FrameRateNormalizer(fps);
    }
}

void BoostingDetector::setMaxMinSampleValue(float value) {
    mOptions.max_min_sample_value = value;
    if (mClassifier != nullptr) mClassifier->setMaxMinSampleValue(value);
}

void BoostingDetector::setMinMaxSampleValue(float value) {
    mOptions.min_max_sample_value = value;
    if (mClassifier != nullptr) mClassifier->setMinMaxSampleValue(value);
}

bool BoostingDetector::normalizeFrameRateAndDetectGesture(double timestamp_ms, float value, GestureInfo* info) {
    if (info == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "info must not be NULL.");
        return false;
    }
    if (mFrameRateNormalizer == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Initialize frame rate normalizer for %f frames per second.",
                            static_cast<double>(mOptions.frame_rate));
        mFrameRateNormalizer = new FrameRateNormalizer(mOptions.frame_rate);
    }
    // mPrevTimestampMs is 0 after construction and reset, so the first sample
    // always lands here and starts from a clean state.
    const double gap = timestamp_ms - mPrevTimestampMs;
    if (gap > static_cast<float>(4000.0f / mOptions.frame_rate)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Big gap in input signal: %f ms. Resetting.", gap);
        reset();
    }
    ++mNumFramesSinceReset;

    float fakeValues[kMaxNumFakeValues];
    const int numFake = mFrameRateNormalizer->updateSignal(timestamp_ms, value, fakeValues, kMaxNumFakeValues);
    if (numFake > 2) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%d fake values are generated. Your sampling rate has large variation.", numFake);
    }
    float magnitudeSum = 0.0f;
    float durationSum = 0.0f;
    int numPositive = 0;
    for (int i = 0; i < numFake; ++i) {
        GestureInfo one;
        if (updateSignalAndDetectGesture(fakeValues[i], &one)) {
            magnitudeSum += one.magnitude;
            durationSum += one.duration;
            ++numPositive;
        }
    }
    mPrevTimestampMs = timestamp_ms;
    if (numPositive == 0) return false;
    info->magnitude = magnitudeSum / static_cast<float>(numPositive);
    info->duration = durationSum / static_cast<float>(numPositive);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Positive detection at %d frame since last reset.",
                        mNumFramesSinceReset);
    return true;
}

bool BoostingDetector::updateSignalAndDetectGesture(float value, GestureInfo* info) {
    if (mClassifier == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mClassifier is NULL. Have you called loadDetectorFromFile?");
        return false;
    }
    if (info == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "info must not be NULL.");
        return false;
    }
    if (mSample == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Create sample of length %d.", mClassifier->sampleLength());
        mSample = new SeqSample(mClassifier->sampleLength());
    }
    if (mSample->length() != mClassifier->sampleLength()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Sample has wrong length: %d.", mSample->length());
        return false;
    }
    mSample->addNewValue(value);
    const bool positive = mClassifier->classify(*mSample) > 0;
    updateClassificationHistory(positive);
    if (!positive) {
        mIsSuppressionOn = false;
        return false;
    }
    if (mIsSuppressionOn) {
        // Still the run of positive windows that was already reported.
        mClassificationHistory.clear();
        return false;
    }
    const float duration = estimateGestureDurationMs();
    const float magnitude = mSample->magnitude();
    __android_log_print(ANDROID_LOG_INFO, kTag, "Positive response magnitude=%.2f, duration=%.0f ms",
                        static_cast<double>(magnitude), static_cast<double>(duration));
    if (getNumPositiveInClassificationHistory() < mOptions.min_detection_cluster_size) return false;
    mClassificationHistory.clear();
    mIsSuppressionOn = true;
    info->magnitude = magnitude;
    info->duration = duration;
    return true;
}

float BoostingDetector::estimateGestureDurationMs() const {
    const float lo = mSample != nullptr ? mSample->minValue() : 0.0f;
    const float hi = mSample != nullptr ? mSample->maxValue() : 0.0f;
    // Widths at 60 % and at 40 % of the way from min to max, averaged.
    const float upper = (2.0f * lo + 3.0f * hi) / 5.0f;
    const float lower = (2.0f * hi + 3.0f * lo) / 5.0f;
    return (estimateGestureDurationMsByThreshold(upper) + estimateGestureDurationMsByThreshold(lower)) / 2.0f;
}

float BoostingDetector::estimateGestureDurationMsByThreshold(float threshold) const {
    if (mSample == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mSample must not be NULL.");
        return 0.0f;
    }
    if (!mSample->full()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mSample must be full.");
        return 0.0f;
    }
    // Widest rise-to-fall span; a run of k samples at or above the threshold
    // measures k + 1, and a run touching either end of the window is not
    // measured.
    int rising = -1;
    int falling = -1;
    int width = 0;
    for (int i = 0, n = mSample->length() - 1; i < n; ++i) {
        const float a = mSample->valueAt(i);
        const float b = mSample->valueAt(i + 1);
        if (b >= threshold && a < threshold) rising = i + 1;
        if (a >= threshold && b < threshold) falling = i + 2;
        if (rising >= 1 && falling >= 1 && falling - rising > width) width = falling - rising;
    }
    return static_cast<float>(width) * 1000.0f / mOptions.frame_rate;
}

void BoostingDetector::updateClassificationHistory(bool positive) { mClassificationHistory.add(positive); }

int BoostingDetector::getNumPositiveInClassificationHistory() const {
    int n = 0;
    for (unsigned int i = 0; i < mClassificationHistory.size(); ++i) {
        if (mClassificationHistory.getAtDelay(i)) ++n;
    }
    return n;
}

android::String8 BoostingDetector::getClassifierDebugString() const {
    if (mClassifier == nullptr) return android::String8("mClassifier: NULL");
    char text[1024];
    mClassifier->getDebugString(text, sizeof(text));
    return android::String8::format("mClassifier: %s", text);
}

android::String8 BoostingDetector::getDebugString() const {
    android::String8 out;
    out.appendFormat("mSample: %s", mSample != nullptr ? mSample->debugString().string() : "NULL");
    out.append("\nmClassificationHistory: [");
    for (unsigned int i = 0; i < mClassificationHistory.size(); ++i) {
        out.appendFormat("%d ", mClassificationHistory.getAtDelay(i) ? 1 : 0);
    }
    out.append("]");
    out.appendFormat("\nmIsSuppressionOn: %d\nmPrevTimestampMs: %.2lf\nmOptions: {%s}", mIsSuppressionOn ? 1 : 0,
                     mPrevTimestampMs, mOptions.DebugString().string());
    return out;
}

}  // namespace velto
