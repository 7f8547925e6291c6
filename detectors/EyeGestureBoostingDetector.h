#ifndef VELTO_EYE_GESTURE_BOOSTING_DETECTOR_H
#define VELTO_EYE_GESTURE_BOOSTING_DETECTOR_H

#include <utils/String8.h>
#include <utils/Vector.h>

#include "classifier/BoostingDetector.h"
#include "classifier/Interval.h"
#include "detectors/EyeGestureDetectorInterface.h"
#include "detectors/TimeStateDetectorInterface.h"
#include "service/EyeGesture.h"

namespace velto {

// One gesture from a set of boosting detectors: every detector sees every
// sample, and a positive answer of any of them is one gesture event, checked
// against the set's magnitude range and a minimum interval. The detectors are
// named in a list file (one detector file per line, relative to the list
// file's directory, no comments). Logs under
// "GazeService:EyeGestureBoostingDetector".
class EyeGestureBoostingDetector : public virtual EyeGestureDetectorInterface,
                                   public virtual TimeStateDetectorInterface {
public:
    static constexpr int kListLineBufferSize = 128;
    static constexpr double kMinGestureIntervalMs = 500.0;
    // The detectors' own cascades get the set's range widened by these
    // factors, clamped to kDetectorMagnitudeLimits, so the set sees weaker and
    // stronger windows than it finally reports.
    static constexpr float kDetectorRangeMinFactor = 0.25f;
    static constexpr float kDetectorRangeMaxFactor = 2.0f;
    static const Interval<float> kDetectorMagnitudeLimits;  // [5, 1000]

    explicit EyeGestureBoostingDetector(EyeGesture gesture);
    // Adopts the detectors, with zero counts.
    EyeGestureBoostingDetector(EyeGesture gesture, const android::Vector<BoostingDetector*>& detectors);
    virtual ~EyeGestureBoostingDetector();

    void reset() override;
    int update(long long timestamp, const float* newSamples, int numSamples) override;
    android::String8 getVersionString() const override;
    android::String8 getDebugString() const override;
    // Loads the detectors of a list file; on failure the set is left empty.
    virtual bool loadDetectorFromFile(const char* path);
    virtual bool setMagnitudeRange(const Interval<float>& range);
    // reset() keeps the last gesture's time; on a new clock it means nothing.
    // (Declared after the detector's own operations, which keep their slots.)
    void resetTimeState() override;

    void clearDetectors();

    EyeGesture getEyeGesture() const { return mEyeGesture; }
    int getNumDetectors() const { return static_cast<int>(mDetectors.size()); }
    const BoostingDetector* getDetector(int i) const { return mDetectors[i]; }
    // Positive answers of detector i since the last reset.
    int getNumPositive(int i) const { return mNumPositive[i]; }
    const Interval<float>& getMagnitudeRange() const { return mMagnitudeRange; }

private:
    EyeGestureBoostingDetector(const EyeGestureBoostingDetector&) = delete;
    EyeGestureBoostingDetector& operator=(const EyeGestureBoostingDetector&) = delete;

    EyeGesture mEyeGesture;
    android::Vector<BoostingDetector*> mDetectors;
    android::Vector<int> mNumPositive;
    double mLastGestureTimeMs;
    Interval<float> mMagnitudeRange;
};

}  // namespace velto

#endif  // VELTO_EYE_GESTURE_BOOSTING_DETECTOR_H
