#include "calibration/LookAtScreenCalibrator.h"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "calibration/CalibrationInterval.h"
#include "calibration/TwoLevelClustering.h"
#include "classifier/FloatConversion.h"
#include "service/GazeRecord.h"
#include "service/GazeService.h"
#include "veltoutils/AtomicFile.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"
#include "veltoutils/ValueCheck.h"

namespace velto {

namespace {

const char kTag[] = "GazeService::LookAtScreenCalibrator";
const CalibrationInterval kInterval(kTag, "LookAtScreenCalibrator", "Look At Screen");

// The sample rate as a whole number of samples per second.
uint64_t samplesPerSecond() { return static_cast<uint64_t>(GazeService::kExpectedDataRateHertz); }

}  // namespace

const char* const LookAtScreenCalibrator::kDefaultParamFilePath = "/data/system/gaze/laser_params.txt";
const long long LookAtScreenCalibrator::kDefaultMaxNumSamples = static_cast<long long>(60 * samplesPerSecond());
const int LookAtScreenCalibrator::kDefaultMinNumSamples = static_cast<int>(samplesPerSecond());
const unsigned int LookAtScreenCalibrator::kDumpBufferSize = static_cast<unsigned int>(10 * samplesPerSecond());

LookAtScreenCalibrator::LookAtScreenCalibrator(ProximitySensorInterface* sensor)
    : LookAtScreenCalibrator(sensor, kDefaultParamFilePath, kDefaultMinClusterSize, kDefaultMinClusterSeparation,
                             kDefaultThresholdFraction, kDefaultMaxNumSamples, kDefaultMinNumSamples,
                             kDefaultOutlierFraction) {}

LookAtScreenCalibrator::LookAtScreenCalibrator(ProximitySensorInterface* sensor, const char* paramFilePath,
                                               int minClusterSize, float minClusterSeparation,
                                               float thresholdFraction, long long maxNumSamples, int minNumSamples,
                                               float outlierFraction)
    : mCalibrating(false),
      mProxSensor(sensor),
      mParamFilePath(paramFilePath != nullptr ? paramFilePath : kDefaultParamFilePath),
      mMinClusterSize(minClusterSize),
      mMinClusterSeparation(minClusterSeparation),
      mThresholdFraction(thresholdFraction),
      mMaxNumSamples(maxNumSamples),
      mMinNumSamples(minNumSamples),
      mOutlierFraction(outlierFraction),
      mProxDataBuffer(kDumpBufferSize) {}

LookAtScreenCalibrator::~LookAtScreenCalibrator() {
    android::Mutex::Autolock lock(mLock);
    if (mCalibrating) endCalibrationInterval_l();
}

bool LookAtScreenCalibrator::isCalibrating() const {
    android::Mutex::Autolock lock(mLock);
    return mCalibrating;
}

size_t LookAtScreenCalibrator::getNumValues() const {
    android::Mutex::Autolock lock(mLock);
    return mValues.size();
}

bool LookAtScreenCalibrator::beginCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    if (!kInterval.mayBegin(mProxSensor, mCalibrating)) return false;
    mValues.clear();
    if (mMaxNumSamples > 0 && mMaxNumSamples < 0x7FFFFFFF) mValues.setCapacity(static_cast<size_t>(mMaxNumSamples));
    mProxDataBuffer.clear();
    kInterval.begin(mProxSensor, this, &mCalibrating);
    return true;
}

bool LookAtScreenCalibrator::endCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    return endCalibrationInterval_l();
}

bool LookAtScreenCalibrator::endCalibrationInterval_l() { return kInterval.end(mProxSensor, this, &mCalibrating); }

void LookAtScreenCalibrator::onProxData(const ProxData& data) {
    android::Mutex::Autolock lock(mLock);
    if (!mCalibrating) {
        kInterval.warnNotCalibrating();
        return;
    }
    const unsigned int value = data.mData & ProxData::kValueMask;
    mValues.push(static_cast<float>(value));
    mProxDataBuffer.addPacket(data, GazeRecord::kInvalidDetectorResponse);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Received prox value = %d", value);
    kInterval.endWhenOverfull(static_cast<long long>(mValues.size()), mMaxNumSamples, mProxSensor, this, &mCalibrating);
}

void LookAtScreenCalibrator::removeOutliers(android::Vector<float>* values, float fraction) {
    if (values == nullptr) return;
    const size_t n = values->size();
    const int k = FloatConversion::truncToInt(static_cast<float>(n) * fraction);
    if (k > 0 && n <= 2 * static_cast<size_t>(k)) {
        values->clear();
        return;
    }
    float* data = values->editArray();
    if (data != nullptr) std::sort(data, data + n);
    if (k > 0) {
        values->removeItemsAt(n - static_cast<size_t>(k), static_cast<size_t>(k));
        values->removeItemsAt(0, static_cast<size_t>(k));
    }
}

bool LookAtScreenCalibrator::calculateTwoClusters(const android::Vector<float>& values, int minClusterSize,
                                                  android::Vector<float>* centers) {
    return TwoLevelClustering::calculateTwoClusters(kTag, values, minClusterSize, centers);
}

void LookAtScreenCalibrator::getClusterSizes(const KMeansCluster& clusters, const android::Vector<float>& values,
                                             android::Vector<unsigned int>* countsPerCluster) {
    TwoLevelClustering::getClusterSizes(kTag, clusters, values, countsPerCluster);
}

bool LookAtScreenCalibrator::getMinMaxValue(const android::Vector<float>& values, float* minValue, float* maxValue) {
    return TwoLevelClustering::getMinMaxValue(kTag, values, minValue, maxValue);
}

bool LookAtScreenCalibrator::updateAndSaveCalibration() {
    android::Mutex::Autolock lock(mLock);
    removeOutliers(&mValues, mOutlierFraction);  // also sorts them
    if (static_cast<long long>(mValues.size()) < mMinNumSamples) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Only got %d calibration samples but need at least %d.  Failing!",
                            static_cast<int>(mValues.size()), mMinNumSamples);
        return false;
    }
    const float minValue = mValues[0];
    const float maxValue = mValues[mValues.size() - 1];
    float lower = 0.0f;
    float upper = 0.0f;
    if (!TwoLevelClustering::findTwoLevels(kTag, mValues, mMinClusterSize, minValue, maxValue, &lower, &upper)) {
        return false;
    }
    const float range = upper - lower;
    __android_log_print(ANDROID_LOG_INFO, kTag, "MinValue=%f MaxValue=%f MinCenter=%f  MaxCenter=%f   Range=%f",
                        static_cast<double>(minValue), static_cast<double>(maxValue), static_cast<double>(lower),
                        static_cast<double>(upper), static_cast<double>(range));
    if (!TwoLevelClustering::areLevelsSeparated(kTag, range, mMinClusterSeparation)) return false;

    // Replaced whole: a failed write keeps the earlier threshold file.
    const float threshold = mThresholdFraction * range;
    ValueCheck check(kTag, "the computed look-at-screen threshold");
    if (!check.positive("threshold", threshold)) return false;
    if (!AtomicFile::write(mParamFilePath.string(), android::String8::format("%f\n", static_cast<double>(threshold)))) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error writing to look-at-screen parameter file: %s",
                            strerror(errno));
        return false;
    }
    mValues.clear();
    return true;
}

android::String8 LookAtScreenCalibrator::dump() {
    android::Mutex::Autolock lock(mLock);
    android::String8 out;
    mProxDataBuffer.dump(out);
    return out;
}

}  // namespace velto
