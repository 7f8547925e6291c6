#ifndef VELTO_LOOK_AT_SCREEN_CALIBRATOR_H
#define VELTO_LOOK_AT_SCREEN_CALIBRATOR_H

#include <stdint.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "proxdata/ProxDataBuffer.h"
#include "sensor/ProximitySensorInterface.h"
#include "veltoutils/KMeansCluster.h"

namespace velto {

// Finds the look-at-screen threshold for the wearer: the readings of a session
// in which the wearer looks at the display and away settle at two levels; the
// distance between the two cluster centres, scaled by the threshold fraction,
// is written as one line "%f\n" to the parameter file that the look-at-screen
// module reads. Logs under "GazeService::LookAtScreenCalibrator".
class LookAtScreenCalibrator : public virtual ProximitySensorInterface::ProxDataListener,
                               public virtual android::RefBase {
public:
    static const char* const kDefaultParamFilePath;  // "/data/system/gaze/laser_params.txt"
    static constexpr int kDefaultMinClusterSize = 5;
    static constexpr float kDefaultMinClusterSeparation = 10.0f;
    static constexpr float kDefaultThresholdFraction = 0.8f;
    static constexpr float kDefaultOutlierFraction = 0.1f;
    // A minute, a second and ten seconds of samples at the nominal rate.
    static const long long kDefaultMaxNumSamples;
    static const int kDefaultMinNumSamples;
    static const unsigned int kDumpBufferSize;

    explicit LookAtScreenCalibrator(ProximitySensorInterface* sensor);
    LookAtScreenCalibrator(ProximitySensorInterface* sensor, const char* paramFilePath, int minClusterSize,
                           float minClusterSeparation, float thresholdFraction, long long maxNumSamples,
                           int minNumSamples, float outlierFraction);
    // Ends an open session first.
    virtual ~LookAtScreenCalibrator();

    bool beginCalibrationInterval();
    bool endCalibrationInterval();
    bool endCalibrationInterval_l();
    // Trims outliers, clusters and writes the threshold; the values of the
    // last session are emptied on success only.
    bool updateAndSaveCalibration();
    void onProxData(const ProxData& data) override;
    // The readings of the current or last session, newest first.
    android::String8 dump();

    // Sorts ascending and drops the `fraction` of smallest and largest values;
    // all of them when nothing would be left.
    static void removeOutliers(android::Vector<float>* values, float fraction);
    static bool calculateTwoClusters(const android::Vector<float>& values, int minClusterSize,
                                     android::Vector<float>* centers);
    static void getClusterSizes(const KMeansCluster& clusters, const android::Vector<float>& values,
                                android::Vector<unsigned int>* countsPerCluster);
    static bool getMinMaxValue(const android::Vector<float>& values, float* minValue, float* maxValue);

    bool isCalibrating() const;
    size_t getNumValues() const;
    const android::String8& getParamFilePath() const { return mParamFilePath; }

private:
    LookAtScreenCalibrator(const LookAtScreenCalibrator&) = delete;
    LookAtScreenCalibrator& operator=(const LookAtScreenCalibrator&) = delete;

    mutable android::Mutex mLock;
    bool mCalibrating;
    ProximitySensorInterface* mProxSensor;
    android::Vector<float> mValues;
    android::String8 mParamFilePath;
    int mMinClusterSize;
    float mMinClusterSeparation;
    float mThresholdFraction;
    int64_t mMaxNumSamples;
    int mMinNumSamples;
    float mOutlierFraction;
    ProxDataBuffer mProxDataBuffer;
};

}  // namespace velto

#endif  // VELTO_LOOK_AT_SCREEN_CALIBRATOR_H
