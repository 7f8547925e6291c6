#include "calibration/DonDoffCalibrator.h"

#include <errno.h>
#include <log/log.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "calibration/CalibrationInterval.h"
#include "calibration/TwoLevelClustering.h"
#include "classifier/FloatConversion.h"
#include "service/GazeService.h"
#include "veltoutils/AtomicFile.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"
#include "veltoutils/ValueCheck.h"

namespace velto {

namespace {

const char kTag[] = "GazeService::DonDoffCalibrator";
const CalibrationInterval kInterval(kTag, "DonDoffCalibrator", "don/doff");

class PthreadLock {
public:
    explicit PthreadLock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~PthreadLock() { pthread_mutex_unlock(mMutex); }

private:
    pthread_mutex_t* mMutex;
};

// A threshold formed in float, truncated to 32 bits, then to the hub's 16.
uint16_t toThreshold(float value) { return static_cast<uint16_t>(FloatConversion::toUint32(value)); }

}  // namespace

const int DonDoffCalibrator::kMinNumSamples = static_cast<int>(GazeService::kExpectedDataRateHertz);
const int DonDoffCalibrator::kMaxNumSamples = 60 * static_cast<int>(GazeService::kExpectedDataRateHertz);
const char* const DonDoffCalibrator::kDebugFilename = "/data/system/gaze/don_doff_debug.txt";

DonDoffCalibrator::DonDoffCalibrator(ProximitySensorInterface* sensor)
    : calibrating(false), mProxSensor(sensor), outOfRangeCount(0) {
    pthread_mutex_init(&mMutex, nullptr);
}

DonDoffCalibrator::~DonDoffCalibrator() {
    {
        PthreadLock lock(&mMutex);
        if (calibrating) endCalibrationInterval_l();
    }
    pthread_mutex_destroy(&mMutex);
}

bool DonDoffCalibrator::isCalibrating() const {
    PthreadLock lock(&mMutex);
    return calibrating;
}

bool DonDoffCalibrator::isCalibrationComplete() const {
    PthreadLock lock(&mMutex);
    return samples.size() >= static_cast<size_t>(kMinNumSamples);
}

size_t DonDoffCalibrator::getNumSamples() const {
    PthreadLock lock(&mMutex);
    return samples.size();
}

unsigned int DonDoffCalibrator::getOutOfRangeCount() const {
    PthreadLock lock(&mMutex);
    return outOfRangeCount;
}

bool DonDoffCalibrator::beginCalibrationInterval() {
    PthreadLock lock(&mMutex);
    if (!kInterval.mayBegin(mProxSensor, calibrating)) return false;
    samples.clear();
    samples.setCapacity(static_cast<size_t>(kMaxNumSamples));
    outOfRangeCount = 0;
    kInterval.begin(mProxSensor, this, &calibrating);
    return true;
}

bool DonDoffCalibrator::endCalibrationInterval() {
    PthreadLock lock(&mMutex);
    return endCalibrationInterval_l();
}

bool DonDoffCalibrator::endCalibrationInterval_l() { return kInterval.end(mProxSensor, this, &calibrating); }

void DonDoffCalibrator::onProxData(const ProxData& data) {
    PthreadLock lock(&mMutex);
    if (!calibrating) {
        kInterval.warnNotCalibrating();
        return;
    }
    const unsigned int value = data.mData & ProxData::kValueMask;
    if (value >= DON_VALUE_LOWER_BOUND && value <= DON_VALUE_UPPER_BOUND) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Update don/doff calibration data with packet: %s",
                            data.toString().string());
        samples.push(static_cast<float>(value));
    } else {
        const unsigned int clamped = value < DON_VALUE_LOWER_BOUND ? DON_VALUE_LOWER_BOUND : DON_VALUE_UPPER_BOUND;
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Out of range value!  Expected: %d <= %d <= %d.  Adding clamped value: %d",
                            DON_VALUE_LOWER_BOUND, value, DON_VALUE_UPPER_BOUND, clamped);
        samples.push(static_cast<float>(clamped));
        ++outOfRangeCount;
    }
    // Closing from inside the sensor's callback is allowed: it delivers
    // without its locks held.
    kInterval.endWhenOverfull(static_cast<long long>(samples.size()), kMaxNumSamples, mProxSensor, this, &calibrating);
}

bool DonDoffCalibrator::getMinMaxValue(const android::Vector<float>& values, float* minValue, float* maxValue) {
    return TwoLevelClustering::getMinMaxValue(kTag, values, minValue, maxValue);
}

void DonDoffCalibrator::getClusterSizes(android::Vector<unsigned int>* countsPerCluster, const KMeansCluster& clusters,
                                        const android::Vector<float>& values) {
    TwoLevelClustering::getClusterSizes(kTag, clusters, values, countsPerCluster);
}

bool DonDoffCalibrator::calculateTwoClusters(android::Vector<float>* centers, const android::Vector<float>& values,
                                             int minClusterSize) {
    return TwoLevelClustering::calculateTwoClusters(kTag, values, minClusterSize, centers);
}

bool DonDoffCalibrator::updateAndSaveCalibration() {
    PthreadLock lock(&mMutex);
    if (samples.size() < static_cast<size_t>(kMinNumSamples)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Only got %d calibration samples but need at least %d.  Failing!",
                            static_cast<int>(samples.size()), kMinNumSamples);
        return false;
    }
    float minValue = 0.0f;
    float maxValue = 0.0f;
    if (!getMinMaxValue(samples, &minValue, &maxValue)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: Unable to find min/max values from calibration data.");
        return false;
    }
    float minCenter = 0.0f;
    float maxCenter = 0.0f;
    if (!TwoLevelClustering::findTwoLevels(kTag, samples, kMinClusterSize, minValue, maxValue, &minCenter,
                                           &maxCenter)) {
        return false;
    }
    const float range = maxCenter - minCenter;
    __android_log_print(ANDROID_LOG_INFO, kTag, "MinCenter=%f  MaxCenter=%f   Range=%f", static_cast<double>(minCenter),
                        static_cast<double>(maxCenter), static_cast<double>(range));
    if (!TwoLevelClustering::areLevelsSeparated(kTag, range, kMinClusterSeparation)) return false;

    // minCenter + range^0.95, minCenter + range^0.7 and
    // minCenter + (maxValue - minCenter)^1.1, as exp of scaled logs.
    const float logRange = static_cast<float>(log(static_cast<double>(range)));
    const float donValue = static_cast<float>(exp(static_cast<double>(kDonExponent * logRange)) + minCenter);
    const float doffValue = static_cast<float>(exp(static_cast<double>(kDoffExponent * logRange)) + minCenter);
    const float donMaxValue = static_cast<float>(
            exp(static_cast<double>(kDonMaxExponent) * log(static_cast<double>(maxValue - minCenter))) + minCenter);
    const uint16_t don = toThreshold(donValue);
    const uint16_t doff = toThreshold(doffValue);
    const uint16_t donMax = toThreshold(donMaxValue);
    __android_log_print(ANDROID_LOG_INFO, kTag, "New don thresh = %u   New doff thresh = %u  New don max thresh = %u",
                        don, doff, donMax);
    // The hub's thresholds are 16 bits wide: refuse values that would wrap.
    ValueCheck check(kTag, "the computed don/doff thresholds");
    if (!check.within("don threshold", donValue, 0, 0xFFFF) || !check.within("doff threshold", doffValue, 0, 0xFFFF) ||
        !check.within("don max threshold", donMaxValue, 0, 0xFFFF)) {
        return false;
    }

    // What the hub holds now goes into the file beside the new thresholds,
    // and back to the hub should the file not be saved.
    MCUParams before;
    if (!getMCUParamsFromProxSensor_l(&before)) return false;
    MCUParams params = before;
    params.donThreshold = don;
    params.doffThreshold = doff;
    params.donMaxThreshold = donMax;
    if (!params.checkValues("the computed don/doff thresholds")) return false;
    if (!applyDonDoffParamsToProxSensor_l(don, doff, donMax)) return false;
    if (!params.saveToFile(MCUParams::kMcuParamsFilename)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to save new parameter file: %s",
                            Paths::resolve(MCUParams::kMcuParamsFilename).string());
        if (!applyDonDoffParamsToProxSensor_l(before.donThreshold, before.doffThreshold, before.donMaxThreshold)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not restore the hub's earlier don/doff thresholds.");
        }
        return false;
    }

    // The debug file only helps a later look; failing to write it does not
    // fail the calibration.
    android::String8 debugText;
    debugText.appendFormat("minValue: %f\n", static_cast<double>(minValue));
    debugText.appendFormat("maxValue: %f\n", static_cast<double>(maxValue));
    debugText.appendFormat("minCenter: %f\n", static_cast<double>(minCenter));
    debugText.appendFormat("maxCenter: %f\n", static_cast<double>(maxCenter));
    if (!AtomicFile::write(kDebugFilename, debugText)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error writing don/doff debug file: %s", strerror(errno));
    }
    samples.clear();
    return true;
}

bool DonDoffCalibrator::applyDonDoffParamsToProxSensor_l(unsigned short don, unsigned short doff,
                                                         unsigned short donMax) {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor was NULL: cannot apply new don/doff thresholds!");
        return false;
    }
    // The hub's detector must not run while its thresholds change.
    if (mProxSensor->isDonDoffEnabled()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot change the dondoff thresholds when the detector is enabled!");
        return false;
    }
    // Stops at the first failing write; the writes before it stay.
    __android_log_print(ANDROID_LOG_INFO, kTag, "Applying don threshold %d to MCU...", don);
    if (!mProxSensor->setDonThreshold(don)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to apply don  threshold.");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Applying doff threshold %d to MCU...", doff);
    if (!mProxSensor->setDoffThreshold(doff)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to apply doff threshold.");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Applying max don threshold %d to MCU...", donMax);
    if (!mProxSensor->setDonMaxThreshold(donMax)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to apply doff threshold.");
        return false;
    }
    return true;
}

bool DonDoffCalibrator::getMCUParamsFromProxSensor_l(MCUParams* params) {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor was NULL: cannot retrieve the MCUParams!");
        return false;
    }
    if (!mProxSensor->getMCUParams(params)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not retrieve the current MCU parameters.");
        return false;
    }
    return true;
}

bool DonDoffCalibrator::loadCalibration() {
    PthreadLock lock(&mMutex);
    MCUParams params;
    if (!params.loadCheckedFromFile(MCUParams::kMcuParamsFilename)) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Cannot read microparams from the calibration file. Not setting them.");
        return false;
    }
    return applyDonDoffParamsToProxSensor_l(params.donThreshold, params.doffThreshold, params.donMaxThreshold);
}

bool DonDoffCalibrator::clearCalibration() {
    PthreadLock lock(&mMutex);
    if (!applyDonDoffParamsToProxSensor_l(MCUParams::kDefaultDonThreshold, MCUParams::kDefaultDoffThreshold,
                                          MCUParams::kDefaultDonMaxThreshold)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not reset to default don/doff thresholds.");
        return false;
    }
    return true;
}

android::String8 DonDoffCalibrator::dump() {
    PthreadLock lock(&mMutex);
    const android::String8 path = Paths::resolve(kDebugFilename);
    FILE* file = fopen(path.string(), "r");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error reading don/doff debug file: %s", strerror(errno));
        return android::String8();
    }
    android::String8 out;
    char piece[80];
    while (fgets(piece, sizeof(piece), file) != nullptr) out.append(piece);
    fclose(file);
    return out;
}

}  // namespace velto
