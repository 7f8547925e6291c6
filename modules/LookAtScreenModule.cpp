#include "modules/LookAtScreenModule.h"

#include <log/log.h>
#include <stdio.h>

#include "service/GazeService.h"
#include "veltoutils/DumpLock.h"
#include "veltoutils/Paths.h"
#include "veltoutils/ValueCheck.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:LookAtScreenModule";
}

const char LookAtScreenModule::kModuleName[] = "LookAtScreenModule";
const char LookAtScreenModule::kModuleVersion[] = "0.3.4";
const char LookAtScreenModule::kDefaultDetectorFilename[] = "/system/etc/gaze/laser_detector_set.txt";
const char LookAtScreenModule::kDefaultParamsFilename[] = "/data/system/gaze/laser_params.txt";
const unsigned int LookAtScreenModule::kBufferCapacity =
        static_cast<unsigned int>(GazeService::kExpectedDataRateHertz * 11.0);

LookAtScreenModule::LookAtScreenModule(ProximitySensorInterface* proxSensor)
    : LookAtScreenModule(proxSensor, kDefaultParamsFilename, kDefaultDetectorFilename) {}

LookAtScreenModule::LookAtScreenModule(ProximitySensorInterface* proxSensor, const char* paramsFilename,
                                       const char* detectorFilename)
    : GazeServiceCalibratedModuleBase(kModuleName),
      mOneShot(false),
      mGazeService(nullptr),
      mProxSensor(proxSensor),
      mTimeoutNumSamples(0),
      mProxDataBuffer(kBufferCapacity),
      mThresh(kDefaultThreshold),
      mParamsFilename(paramsFilename),
      mIsCalibrated(false),
      mDetectorFilename(detectorFilename),
      mDetector(nullptr),
      mHistoryMs(kHistoryMs) {
    if (proxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: cannot construct a LookAtScreenModule with a NULL prox sensor!");
        return;
    }
    mCalibrator = new LookAtScreenCalibrator(proxSensor);
}

LookAtScreenModule::~LookAtScreenModule() {
    {
        android::Mutex::Autolock lock(mLock);
        if (mIsRunning.load()) stop_l();
    }
    delete mDetector;
}

void LookAtScreenModule::serviceReady() {
    mIsCalibrated.store(false);
    if (!loadBoostingDetectorFromFile()) return;  // without a detector the module never reports
    const bool calibrated = loadParametersFromFile(mParamsFilename);
    mIsCalibrated.store(calibrated);
    if (!calibrated) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Module is uncalibrated.");
    } else {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Module is calibrated.");
        __android_log_print(ANDROID_LOG_INFO, kTag, "Running with parameters.  Thresh=%f", mThresh);
    }
    mGazeService = GazeService::getInstance();
}

bool LookAtScreenModule::loadBoostingDetectorFromFile() {
    delete mDetector;
    mDetector = new EyeGestureBoostingDetector(GazeServiceInterface::LOOK_AT_SCREEN);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading LAS detector from file %s ...",
                        Paths::resolve(mDetectorFilename).string());
    if (!mDetector->loadDetectorFromFile(mDetectorFilename.string())) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load boosting LAS detector from file.");
        delete mDetector;
        mDetector = nullptr;
        return false;
    }
    return true;
}

bool LookAtScreenModule::loadParametersFromFile(const android::String8& file) {
    android::String8 path = Paths::resolve(file);
    FILE* f = fopen(path.string(), "r");
    if (f == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Cannot open laser parameter file: %s", path.string());
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Reading LASER parameters from %s", path.string());
    float thresh = 0.0f;
    const bool read = fscanf(f, "%f", &thresh) == 1;
    fclose(f);
    if (!read) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error reading parameters from file!");
        return false;
    }
    // NaN would never fire and 0 or less would accept almost anything; the
    // threshold and the detector's range in force stay as they are.
    ValueCheck check(kTag, path.string());
    if (!check.positive("threshold", thresh)) return false;
    mThresh = thresh;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Read parameters.  Thresh=%f", mThresh);
    if (!applyCalibrationToBoostingDetector()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not apply calibration to boosting detector.");
        return false;
    }
    return true;
}

bool LookAtScreenModule::applyCalibrationToBoostingDetector() {
    if (mDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Detector must not be NULL.");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Apply calibration to boosting detector.");
    if (mThresh >= kMaxMagnitude) {
        // Applied all the same: the wearer may really have such a strong signal.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Minimum LAS magnitude is suspiciously high: %f.", mThresh);
    }
    return mDetector->setMagnitudeRange(Interval<float>(mThresh, kMaxMagnitude));
}

int LookAtScreenModule::start(bool oneShot, int timeout) {
    android::Mutex::Autolock lock(mLock);
    return start_l(oneShot, timeout);
}

int LookAtScreenModule::start_l(bool oneShot, int timeout) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Starting %s...", mName.string());
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return FAILED;
    }
    if (!mIsCalibrated.load()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Not calibrated. Can not start %s.", mName.string());
        return FAILED;
    }
    if (oneShot) __android_log_print(ANDROID_LOG_INFO, kTag, "Starting LookAtScreenModule as a oneShot.");
    mOneShot = oneShot;
    if (timeout == -1) {
        mTimeoutNumSamples = kInfiniteNumSamples;
    } else {
        // A timeout under one sample period gives 0, which the countdown passes
        // without meeting: such a run does not time out.
        mTimeoutNumSamples = timeoutMillisToSamples(timeout);
        __android_log_print(ANDROID_LOG_INFO, kTag, ">>>>> Start %s for %lld samples. <<<<<<", mName.string(),
                            static_cast<long long>(mTimeoutNumSamples));
    }
    if (mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "start called again while already running.");
        return OK;
    }
    mProxSensor->addProxDataListener(this, mHistoryMs);
    mIsRunning.store(true);
    mProxDataBuffer.addMarkerPacket();
    return OK;
}

int LookAtScreenModule::stop() {
    android::Mutex::Autolock lock(mLock);
    return stop_l();
}

int LookAtScreenModule::stop_l() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Stopping %s...", mName.string());
    if (!mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "stop_l() called when not running.");
        return OK;
    }
    if (mCalibrator != nullptr && mCalibrator->isCalibrating()) mCalibrator->endCalibrationInterval();
    if (mProxSensor != nullptr) mProxSensor->removeProxDataListener(this);
    mIsRunning.store(false);
    mOneShot = false;
    return OK;
}

int LookAtScreenModule::loadCalibration() {
    android::Mutex::Autolock lock(mLock);
    const bool loaded = loadParametersFromFile(mParamsFilename);
    mIsCalibrated.store(loaded);
    return loaded ? OK : FAILED;
}

int LookAtScreenModule::commitCalibration() {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "LookAtScreenModule::commitCalibration() is not implemented yet. Use "
                        "LookAtScreenModule::saveCalibration() for now. Just return OK.");
    return OK;
}

int LookAtScreenModule::clearCalibration() {
    android::Mutex::Autolock lock(mLock);
    mIsCalibrated.store(false);
    return OK;
}

int LookAtScreenModule::saveCalibration() const {
    android::Mutex::Autolock lock(mLock);
    if (mCalibrator != nullptr && mCalibrator->updateAndSaveCalibration()) return OK;
    // A failed calibration leaves no parameter file behind.
    if (remove(Paths::resolve(mParamsFilename).string()) == 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Successfully deleted calibration file.");
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Error deleting calibration file.");
    }
    return FAILED;
}

int LookAtScreenModule::beginCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    if (mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "LAS calibration must be done when LAS detection is off.");
        return FAILED;
    }
    return mCalibrator != nullptr && mCalibrator->beginCalibrationInterval() ? OK : FAILED;
}

int LookAtScreenModule::endCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    if (mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "LAS calibration must be done when LAS detection is off.");
        return FAILED;
    }
    return mCalibrator != nullptr && mCalibrator->endCalibrationInterval() ? OK : FAILED;
}

bool LookAtScreenModule::isCalibrationComplete() const {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "LAS currently does not support this call. Should never reach here.");
    return false;
}

void LookAtScreenModule::onProxDataDiscontinuity(long long, long long) {
    android::Mutex::Autolock lock(mLock);
    if (mDetector != nullptr) mDetector->resetTimeState();
}

void LookAtScreenModule::onProxData(const ProxData& sample) {
    android::Mutex::Autolock lock(mLock);
    int result = GazeRecord::kInvalidDetectorResponse;
    if (mDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Detector must not be NULL.");
    } else {
        const float value = static_cast<float>(sample.mData & ProxData::kValueMask);
        result = mDetector->update(sample.mTimestampNanos, &value, 1);
    }
    mProxDataBuffer.addPacket(sample, result);
    if (mTimeoutNumSamples != kInfiniteNumSamples) {
        --mTimeoutNumSamples;
        if (mTimeoutNumSamples == 0) {
            __android_log_print(ANDROID_LOG_INFO, kTag, "%s timeout.. stopping.", mName.string());
            stop_l();
        }
    }
    if (result == GazeServiceInterface::LOOK_AT_SCREEN && mGazeService != nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Firing LookAtScreenEvent!");
        mGazeService->sendEyeGestureEventNow(GazeServiceInterface::LOOK_AT_SCREEN);
        if (mOneShot) {
            __android_log_print(ANDROID_LOG_DEBUG, kTag, "OneShot was set and we detected an event: stopping...");
            stop_l();
        }
    }
}

android::String8 LookAtScreenModule::dump() const {
    // The buffer and the detector change on the sensor thread.
    DumpLock lock(mLock, kTag);
    android::String8 out;
    out.appendFormat(" isDetectorRunningNow: %s\n", isRunning() ? "true" : "false");
    out.appendFormat(" thresh: %f\n", mThresh);
    out.append("\nLookAtScreenDetector:\n");
    out.append(mDetector != nullptr ? mDetector->getDebugString() : android::String8("NULL"));
    mProxDataBuffer.dump(out);
    out.append("\nLookAtScreenCalibrator:\n");
    if (mCalibrator != nullptr) out.append(mCalibrator->dump());
    return out;
}

}  // namespace velto
