#ifndef VELTO_CALIBRATED_MULTI_DURATION_WINK_DETECTOR_H
#define VELTO_CALIBRATED_MULTI_DURATION_WINK_DETECTOR_H

#include <stdint.h>
#include <stdio.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "calibration/MCUParams.h"
#include "classifier/BoostingDetector.h"
#include "classifier/Interval.h"
#include "detectors/CalibratedEyeGestureDetectorInterface.h"
#include "detectors/TimeStateDetectorInterface.h"
#include "veltoutils/ValueCheck.h"

namespace velto {

class ProximitySensorInterface;

// The wink detector: several boosting detectors, each trained for one range of
// wink durations. Outside calibration only the active detector, the one that
// fits the wearer's own winks, classifies, and a detection counts only if its
// magnitude fits the calibrated range and its duration a fixed plausible
// range. During a calibration interval every detector runs and the wearer's
// winks are collected; from them come the acceptable ranges, the active
// detector and the hub's low-power wink thresholds.
//
// Detector list file: pairs of lines, "min_ms max_ms" (the durations the
// detector was trained for) and the detector file's name relative to the
// list file's directory. High-power calibration file: one line
// "mag_min mag_max dur_min dur_max active_index".
//
// Logs under "GazeService:MultiDurWinkDetector".
class CalibratedMultiDurationWinkDetector : public virtual CalibratedEyeGestureDetectorInterface,
                                            public virtual TimeStateDetectorInterface {
public:
    typedef BoostingDetector::GestureInfo GestureInfo;

    static const char* const kVersionString;
    // Durations a wink can plausibly have; also the fixed duration gate.
    static const Interval<float> kPlausibleWinkDurationRangeMs;
    // Given to every loaded detector's cascade.
    static const Interval<float> kDetectorMagnitudeRange;
    // Durations a calibration wink must have.
    static const Interval<float> kCalibrationWinkDurationRangeMs;
    static constexpr double kMinWinkIntervalMs = 1600.0;
    static constexpr int kMaxNumCalibrationWinks = 3;
    // A detector's calibration result before it has fired.
    static constexpr int32_t kNotFired = 0x7FFFFFFF;
    static constexpr int kNameLineBufferSize = 4096;

    explicit CalibratedMultiDurationWinkDetector(ProximitySensorInterface* sensor);
    virtual ~CalibratedMultiDurationWinkDetector();

    void reset() override;
    // Returns 0 (WINK) or -1.
    int update(long long timestampNanos, const float* newSamples, int numSamples) override;
    android::String8 getVersionString() const override;
    android::String8 getDebugString() const override;
    // Saves and applies the low-power half (gaze parameter file, hub), then the
    // high-power half to `path`.
    bool applyAndSaveCalibration(const char* path) override;
    bool loadCalibration(const char* path) override;
    bool isCalibrated() const override { return mIsCalibrated; }
    bool isCalibrationOn() const override { return mIsCalibrationOn; }
    bool startCalibrationInterval() override;
    bool endCalibrationInterval() override;
    bool clearCalibration() override;
    bool needMoreCalibrationEyeGestures() const override;

    virtual bool loadDetectorFromFile(const char* path);
    // Whether a detector list holds nothing but pairs of a duration range
    // (finite, not negative, not reversed) and a name line, with blank lines
    // between them. loadDetectorFromFile stops quietly at the first line that
    // is not a range and keeps the detectors before it; a caller that wants
    // such a file refused whole checks it with this first. One log line
    // names the first bad line.
    static bool isDetectorListWellFormed(const char* path);
    virtual void clearDetectors();
    virtual bool classifyNewSamples(double timeMs, const float* newSamples, int numSamples, GestureInfo* info);
    virtual bool classifyNewSamplesWithAllDetectors(double timeMs, const float* newSamples, int numSamples,
                                                    GestureInfo* info);
    virtual bool classifyNewSamplesWithActiveDetector(double timeMs, const float* newSamples, int numSamples,
                                                      GestureInfo* info);
    virtual bool updateCalibrationOnWink(const GestureInfo& info);
    virtual bool updateCalibrationOnSamples(const float* newSamples, int numSamples);
    virtual bool isWinkConsistentWithCalibration(const GestureInfo& info) const;
    virtual bool computeMCUParams(MCUParams* params);
    virtual bool applyMCUParamsToProxSensor(const MCUParams& params);
    // True while more calibration winks are needed.
    virtual bool updateCalibrationAttributeRange();
    virtual void computeCalibrationAttributeRange();
    virtual void computeAcceptableWinkAttributeRange();
    virtual bool areCalibrationWinkMagnitudesConsistent(float a, float b);
    virtual void chooseBestDetectorBasedOnCalibrationDuration();
    virtual BoostingDetector* getActiveDetector();
    virtual bool saveHighPowerCalibration(const char* path) const;
    virtual bool saveAndApplyLowPowerCalibration(const char* path);
    virtual bool loadHighPowerCalibration(const char* path);
    virtual bool loadLowPowerCalibration(const char* path);
    // As reset(), for a new clock that may start anywhere, even below zero.
    // (Declared after the detector's own operations, which keep their slots.)
    void resetTimeState() override;

    // Adopts a detector trained for `durationRangeMs`, as a list file entry
    // would add it (for tools that build detectors in memory).
    void addDetector(BoostingDetector* detector, const Interval<float>& durationRangeMs);

    // Dice coefficient of two intervals: 2 |A n B| / (|A| + |B|); 0 when
    // either is reversed or they do not overlap.
    static float computeOverlapRatio(const Interval<float>& a, const Interval<float>& b);

    int getNumDetectors() const { return static_cast<int>(mDetectors.size()); }
    const BoostingDetector* getDetector(int i) const { return mDetectors[i]; }
    const Interval<float>& getDetectorDurationRangeMs(int i) const { return mDetectorDurationRangesMs[i]; }
    int getNumCalibrationWinksFromDetector(int i) const { return mNumCalibrationWinksFromDetector[i]; }
    int getActiveDetectorIndex() const { return mActiveDetectorIndex; }
    const Interval<float>& getCalibrationMagnitudeRange() const { return mCalibrationMagnitudeRange; }
    const Interval<float>& getAcceptableMagnitudeRange() const { return mAcceptableMagnitudeRange; }
    const Interval<float>& getCalibrationDurationRangeMs() const { return mCalibrationDurationRangeMs; }
    const Interval<float>& getAcceptableDurationRangeMs() const { return mAcceptableDurationRangeMs; }
    int getTotalNumCalibrationWinks() const { return mTotalNumCalibrationWinks; }
    int getNumWinksInLastCalibrationInterval() const { return mNumWinksInLastCalibrationInterval; }
    const android::Vector<GestureInfo>& getCalibrationWinks() const { return mCalibrationWinks; }
    int getNumCalibrationSamples() const { return mNumCalibrationSamples; }
    int getNumOutOfRangeCalibrationSamples() const { return mNumOutOfRangeCalibrationSamples; }

private:
    CalibratedMultiDurationWinkDetector(const CalibratedMultiDurationWinkDetector&) = delete;
    CalibratedMultiDurationWinkDetector& operator=(const CalibratedMultiDurationWinkDetector&) = delete;

    // Widens both calibration ranges to include one wink.
    void includeInCalibrationRanges(const GestureInfo& wink);
    // The body of loadHighPowerCalibration: reads, checks and takes the
    // values of an open calibration file one by one.
    bool readHighPowerCalibration(FILE* pf, const char* path, ValueCheck* check);
    // Whether a range read from `check`'s file is ordered and within `bounds`.
    static bool checkRange(ValueCheck* check, const char* field, const Interval<float>& range,
                           const Interval<float>& bounds);
    // Puts back the hub parameters that saveAndApplyLowPowerCalibration found,
    // after a save that failed once the new ones were on the hub.
    void restoreHubParamsAfterFailedSave();

    double mLastConfirmedDetectionTimeMs;
    Interval<float> mCalibrationMagnitudeRange;
    Interval<float> mAcceptableMagnitudeRange;
    int32_t mTotalNumCalibrationWinks;
    int32_t mNumWinksInLastCalibrationInterval;
    bool mIsCalibrationOn;
    bool mIsCalibrated;
    ProximitySensorInterface* mProxSensor;
    Interval<float> mCalibrationDurationRangeMs;
    Interval<float> mAcceptableDurationRangeMs;
    android::Vector<GestureInfo> mCalibrationWinks;
    int32_t mNumCalibrationSamples;
    int32_t mNumOutOfRangeCalibrationSamples;
    android::Vector<Interval<float>> mDetectorDurationRangesMs;
    android::Vector<BoostingDetector*> mDetectors;
    android::Vector<int> mNumCalibrationWinksFromDetector;
    int32_t mActiveDetectorIndex;
    // Per detector, samples since it last fired during calibration.
    android::Vector<int> mLastCalibrationDetectionResults;
    GestureInfo mAverageCalibrationWinkInfo;
    // Samples of silence after the last firing before a calibration wink is
    // reported: a sixth of a second.
    int32_t mCalibrationReportDelaySamples;
    // The hub's parameters before saveAndApplyLowPowerCalibration last wrote
    // new ones, when they could be read.
    MCUParams mHubParamsBeforeSave;
    bool mHaveHubParamsBeforeSave;
};

}  // namespace velto

#endif  // VELTO_CALIBRATED_MULTI_DURATION_WINK_DETECTOR_H
