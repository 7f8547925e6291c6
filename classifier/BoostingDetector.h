#ifndef VELTO_BOOSTING_DETECTOR_H
#define VELTO_BOOSTING_DETECTOR_H

#include <utils/String8.h>

#include "classifier/CascadeClassifier.h"
#include "classifier/DetectorOptions.h"
#include "classifier/FrameRateNormalizer.h"
#include "classifier/Interval.h"
#include "classifier/SeqSample.h"
#include "proxdata/CircularBuffer.h"

namespace velto {

// Turns a time-stamped stream into detections: resamples it to the frame rate,
// slides a window over it, asks the cascade about every window, and reports
// one detection per run of positive windows once enough of the last 8 were
// positive, with the window's magnitude and an estimate of the gesture's
// duration. Faults are logged under "GazeService:BoostingDetector".
class BoostingDetector {
public:
    struct GestureInfo {
        float magnitude = 0.0f;  // max - min of the window at the detection
        float duration = 0.0f;   // ms
    };

    // Resampled values per input sample at most; longer gaps reset the
    // detector before they reach the normaliser.
    static constexpr int kMaxNumFakeValues = 5;
    static constexpr int kClassificationHistorySize = 8;

    BoostingDetector();
    explicit BoostingDetector(const DetectorOptions& options);
    BoostingDetector(const DetectorOptions& options, const android::String8& name);
    virtual ~BoostingDetector();

    // Empty window, empty history, unanchored normaliser; the cascade stays.
    virtual void reset();
    // Replaces the cascade; on failure none is left.
    virtual bool loadDetectorFromFile(const char* path);
    // One real sample (time in ms). True with the mean magnitude and duration
    // of the detections among its resampled values.
    virtual bool normalizeFrameRateAndDetectGesture(double timestamp_ms, float value, GestureInfo* info);
    virtual bool setMagnitudeRange(const Interval<float>& range);
    // One sample already on the frame-rate grid.
    virtual bool updateSignalAndDetectGesture(float value, GestureInfo* info);
    virtual float estimateGestureDurationMs() const;
    virtual float estimateGestureDurationMsByThreshold(float threshold) const;
    virtual void updateClassificationHistory(bool positive);
    virtual int getNumPositiveInClassificationHistory() const;

    void setFrameRate(float fps);
    void setMaxMinSampleValue(float value);
    void setMinMaxSampleValue(float value);

    android::String8 getDebugString() const;
    android::String8 getClassifierDebugString() const;

    const android::String8& getName() const { return mName; }
    const DetectorOptions& getOptions() const { return mOptions; }
    // The loaded cascade, or null.
    const CascadeClassifier* getClassifier() const { return mClassifier; }
    // The window, or null before the first sample.
    const SeqSample* getSample() const { return mSample; }

private:
    BoostingDetector(const BoostingDetector&) = delete;
    BoostingDetector& operator=(const BoostingDetector&) = delete;

    android::String8 mName;
    CircularBuffer<bool> mClassificationHistory;
    SeqSample* mSample;
    CascadeClassifier* mClassifier;
    bool mIsSuppressionOn;  // from a detection until the next negative window
    FrameRateNormalizer* mFrameRateNormalizer;
    double mPrevTimestampMs;
    int mNumFramesSinceReset;
    DetectorOptions mOptions;
};

}  // namespace velto

#endif  // VELTO_BOOSTING_DETECTOR_H
