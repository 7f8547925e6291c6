#ifndef VELTO_DON_DOFF_CALIBRATOR_H
#define VELTO_DON_DOFF_CALIBRATOR_H

#include <pthread.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "calibration/MCUParams.h"
#include "sensor/ProximitySensorInterface.h"
#include "veltoutils/KMeansCluster.h"

namespace velto {

// Computes the hub's don, doff and don-max thresholds for the wearer: the
// readings of a calibration interval (device on and off the head) are split
// into two levels, and the thresholds follow from the level centres by power
// laws. The result goes to the hub, to the gaze parameter file and to a small
// debug file. Logs under "GazeService::DonDoffCalibrator".
//
// One mutex guards everything; it is held while calling into the sensor.
class DonDoffCalibrator : public virtual ProximitySensorInterface::ProxDataListener, public virtual android::RefBase {
public:
    // Readings outside this range are clamped into it (and counted).
    static constexpr unsigned int DON_VALUE_LOWER_BOUND = 250;
    static constexpr unsigned int DON_VALUE_UPPER_BOUND = 4000;
    // One second and one minute of samples at the nominal rate.
    static const int kMinNumSamples;
    static const int kMaxNumSamples;
    static constexpr int kMinClusterSize = 5;
    static constexpr float kMinClusterSeparation = 100.0f;
    static constexpr float kDonExponent = 0.95f;
    static constexpr float kDoffExponent = 0.7f;
    static constexpr float kDonMaxExponent = 1.1f;
    // "/data/system/gaze/don_doff_debug.txt"
    static const char* const kDebugFilename;

    explicit DonDoffCalibrator(ProximitySensorInterface* sensor);
    // Ends an open interval first.
    virtual ~DonDoffCalibrator();

    void onProxData(const ProxData& data) override;
    virtual bool beginCalibrationInterval();
    virtual bool endCalibrationInterval();
    // Applies the thresholds of the gaze parameter file to the hub.
    virtual bool loadCalibration();
    // Applies the default thresholds to the hub; the file is kept.
    virtual bool clearCalibration();
    // Computes, applies and saves the thresholds from the collected samples;
    // they are emptied on success only.
    virtual bool updateAndSaveCalibration();

    bool endCalibrationInterval_l();

    static bool getMinMaxValue(const android::Vector<float>& values, float* minValue, float* maxValue);
    static void getClusterSizes(android::Vector<unsigned int>* countsPerCluster, const KMeansCluster& clusters,
                                const android::Vector<float>& values);
    static bool calculateTwoClusters(android::Vector<float>* centers, const android::Vector<float>& values,
                                     int minClusterSize);

    bool applyDonDoffParamsToProxSensor_l(unsigned short don, unsigned short doff, unsigned short donMax);
    bool getMCUParamsFromProxSensor_l(MCUParams* params);

    // The debug file's text, or "" when it cannot be read.
    android::String8 dump();

    bool isCalibrating() const;
    // Enough samples have been collected for updateAndSaveCalibration.
    bool isCalibrationComplete() const;
    size_t getNumSamples() const;
    unsigned int getOutOfRangeCount() const;

private:
    DonDoffCalibrator(const DonDoffCalibrator&) = delete;
    DonDoffCalibrator& operator=(const DonDoffCalibrator&) = delete;

    mutable pthread_mutex_t mMutex;
    bool calibrating;
    ProximitySensorInterface* mProxSensor;
    android::Vector<float> samples;
    unsigned int outOfRangeCount;
};

}  // namespace velto

#endif  // VELTO_DON_DOFF_CALIBRATOR_H
