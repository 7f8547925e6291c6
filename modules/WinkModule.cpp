#include "modules/WinkModule.h"

#include <log/log.h>
#include <utils/SystemClock.h>

#include <limits>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "detectors/TimeStateDetectorInterface.h"
#include "service/GazeService.h"
#include "veltoutils/DumpLock.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:WinkModule";
// Before any sample: far enough back that the first one is never stale.
const int64_t kInitialLatestTimestampNs = -100000000;

// A gap of one and a half sample periods between two samples means samples were
// lost: the validation starts over. Computed on first use.
int64_t timestampGapThresholdNs() {
    static const int64_t gap = static_cast<int64_t>(1500000000.0 / static_cast<double>(GazeService::kExpectedDataRateHertz));
    return gap;
}

}  // namespace

const char WinkModule::kModuleName[] = "WinkModule";
const char WinkModule::kModuleVersion[] = "1.0.2";
const char WinkModule::kDefaultCalibrationFilename[] = "/data/system/gaze/wink_calibration.txt";
const char WinkModule::kMultiDurationWinkDetectorFilename[] = "/system/etc/gaze/multi_dur_wink_detector.txt";
const int32_t WinkModule::kLowPowerWinkHoldoffSamples =
        static_cast<int32_t>(static_cast<int64_t>(static_cast<double>(GazeService::kExpectedDataRateHertz) * 0.5));
const unsigned int WinkModule::kBufferCapacity = static_cast<unsigned int>(GazeService::kExpectedDataRateHertz * 50.0);

WinkModule::WinkModule(ProximitySensorInterface* proxSensor)
    : GazeServiceCalibratedModuleBase(kModuleName),
      mIsInHighPowerMode(false),
      mOneShot(false),
      mGazeService(nullptr),
      mProxSensor(proxSensor),
      mWinkDetector(nullptr),
      mOwnsDetector(true),
      mProxDataBuffer(kBufferCapacity),
      mNumSamplesRemainingToValidateWink(0),
      mLowPowerWinkHoldoffSamples(0),
      mNumProxPacketsRead(0),
      mLatestTimestampNs(kInitialLatestTimestampNs),
      mLastLowPowerWinkTimeMs(0),
      mLastProxEventTimeMs(0),
      mNumLowPowerEvents(0),
      mNumHighPowerEvents(0),
      mCalibrationFilename(kDefaultCalibrationFilename) {
    if (proxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "The proxSensor cannot be NULL!  The module will be invalid!");
    }
    mGazeService = GazeService::getInstance();
    if (mGazeService == nullptr) __android_log_print(ANDROID_LOG_ERROR, kTag, "GazeService singleton must not be NULL!");
    mWinkDetector = createWinkDetector(kMultiDurationWinkDetectorFilename, mProxSensor);
    if (mWinkDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to create a wink detector!  The module will be invalid!");
    }
}

WinkModule::WinkModule(ProximitySensorInterface* proxSensor, CalibratedEyeGestureDetectorInterface* detector,
                       GazeServiceInterface* service, const char* calibrationFilename)
    : GazeServiceCalibratedModuleBase(kModuleName),
      mIsInHighPowerMode(false),
      mOneShot(false),
      mGazeService(service),
      mProxSensor(proxSensor),
      mWinkDetector(detector),
      mOwnsDetector(false),
      mProxDataBuffer(kBufferCapacity),
      mNumSamplesRemainingToValidateWink(0),
      mLowPowerWinkHoldoffSamples(0),
      mNumProxPacketsRead(0),
      mLatestTimestampNs(kInitialLatestTimestampNs),
      mLastLowPowerWinkTimeMs(0),
      mLastProxEventTimeMs(0),
      mNumLowPowerEvents(0),
      mNumHighPowerEvents(0),
      mCalibrationFilename(calibrationFilename) {}

WinkModule::~WinkModule() {
    {
        android::Mutex::Autolock lock(mLock);
        if (mIsRunning.load()) stop_l();
        // A calibration interval may hold the sample stream without a start.
        if (mIsInHighPowerMode && mProxSensor != nullptr) exitHighPowerDetectionMode_l();
    }
    if (mOwnsDetector) delete mWinkDetector;
}

CalibratedEyeGestureDetectorInterface* WinkModule::createWinkDetector(const char* filename,
                                                                      ProximitySensorInterface* sensor) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Create CalibratedMultiDurWinkDetector.");
    CalibratedMultiDurationWinkDetector* detector = new CalibratedMultiDurationWinkDetector(sensor);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading detector file: %s...\n", Paths::resolve(filename).string());
    // The detector keeps the entries before a broken line of its list; the
    // module takes the list whole or not at all.
    if (!CalibratedMultiDurationWinkDetector::isDetectorListWellFormed(filename) ||
        !detector->loadDetectorFromFile(filename)) {
        delete detector;
        return nullptr;
    }
    return detector;
}

void WinkModule::serviceReady() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading calibration...");
    if (loadCalibration() == OK) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "... done loading calibration.");
    } else {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "ERROR: loading calibration! ");
    }
}

bool WinkModule::canStart() const {
    android::Mutex::Autolock lock(mLock);
    return mWinkDetector != nullptr && mWinkDetector->isCalibrated();
}

int WinkModule::start(bool oneShot, int timeout) {
    if (timeout != -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unsupported: WinkModule cannot be run in a timeout mode yet.");
        return UNSUPPORTED;
    }
    android::Mutex::Autolock lock(mLock);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return FAILED;
    }
    if (mWinkDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mWinkDetector cannot be NULL!");
        return FAILED;
    }
    if (mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "start called again while already running.");
        return OK;
    }
    mOneShot = oneShot;
    mProxSensor->addLowPowerWinkListener(this);
    mIsRunning.store(true);
    return OK;
}

int WinkModule::stop() {
    android::Mutex::Autolock lock(mLock);
    if (!mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "stop called when not running?");
        return OK;
    }
    return stop_l();
}

int WinkModule::stop_l() {
    if (mIsInHighPowerMode) exitHighPowerDetectionMode_l();
    int status = OK;
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        status = FAILED;
    } else {
        mProxSensor->removeLowPowerWinkListener(this);
    }
    mIsRunning.store(false);
    mOneShot = false;
    return status;
}

int WinkModule::loadCalibration() {
    android::Mutex::Autolock lock(mLock);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading the calibration file: %s",
                        Paths::resolve(mCalibrationFilename).string());
    const int status = loadCalibration_l(mCalibrationFilename);
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load calibration from file: %s.",
                            Paths::resolve(mCalibrationFilename).string());
    }
    return status;
}

int WinkModule::loadCalibration_l(const android::String8& file) {
    if (mWinkDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mWinkDetector cannot be NULL!");
        return FAILED;
    }
    if (mWinkDetector->loadCalibration(file.string())) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Successfully loaded calibration file: %s", file.string());
        return OK;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Failed to load calibration file: %s", file.string());
    return FAILED;
}

int WinkModule::commitCalibration() {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "WinkModule::commitCalibration() is not implemented yet. Use WinkModule::saveCalibration() for "
                        "now. Just return OK.");
    return OK;
}

int WinkModule::clearCalibration() {
    android::Mutex::Autolock lock(mLock);
    return mWinkDetector != nullptr && mWinkDetector->clearCalibration() ? OK : FAILED;
}

int WinkModule::saveCalibration() const {
    android::Mutex::Autolock lock(mLock);
    const int status = saveCalibration_l(mCalibrationFilename);
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not save calibration data to %s.",
                            Paths::resolve(mCalibrationFilename).string());
    }
    return status;
}

int WinkModule::saveCalibration_l(const android::String8& file) const {
    if (mWinkDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mWinkDetector cannot be NULL!");
        return FAILED;
    }
    // An incomplete calibration would overwrite a good one with thresholds
    // that let the hub's own detector miss every wink.
    if (!mWinkDetector->isCalibrated()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No complete wink calibration to save.");
        return FAILED;
    }
    // Saving is where the collected calibration is applied to the hub.
    if (mWinkDetector->applyAndSaveCalibration(file.string())) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Successfully saved calibration file: %s", file.string());
        return OK;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Failed to save calibration file: %s", file.string());
    return FAILED;
}

int WinkModule::beginCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return FAILED;
    }
    mProxSensor->flush();
    // The whole stream for the length of the interval: no history, no budget.
    enterHighPowerDetectionMode_l(kInfiniteNumSamples, 0);
    return mWinkDetector != nullptr && mWinkDetector->startCalibrationInterval() ? OK : FAILED;
}

int WinkModule::endCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    exitHighPowerDetectionMode_l();
    return mWinkDetector != nullptr && mWinkDetector->endCalibrationInterval() ? OK : FAILED;
}

bool WinkModule::isCalibrationComplete() const {
    android::Mutex::Autolock lock(mLock);
    return mWinkDetector != nullptr && !mWinkDetector->needMoreCalibrationEyeGestures();
}

android::String8 WinkModule::getVersionString() const {
    return android::String8::format("WinkModule: %s WinkDetector: %s", kModuleVersion,
                                    mWinkDetector != nullptr ? mWinkDetector->getVersionString().string() : "NULL");
}

void WinkModule::onLowPowerWink() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "onLowPowerWink() called... Switching to high power classifier...");
    android::Mutex::Autolock lock(mLock);
    mLastLowPowerWinkTimeMs = android::elapsedRealtime();
    // A wink during a validation does not extend it.
    if (!mIsInHighPowerMode) enterHighPowerDetectionMode_l(kWinkValidationSamples, kWinkValidationSamples);
    if (mLowPowerWinkHoldoffSamples == 0) ++mNumLowPowerEvents;
    mLowPowerWinkHoldoffSamples = kLowPowerWinkHoldoffSamples;
}

void WinkModule::enterHighPowerDetectionMode_l(int64_t numSamples, int64_t numHistoricSamples) {
    if (numSamples < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Cannot enter high power mode for negative samples. Did you mean kInfiniteNumSamples?");
        return;
    }
    if (numSamples < numHistoricSamples) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Number of historic samples to process %lld must be smaller than or equal to the total "
                            "number samples to process %lld.",
                            static_cast<long long>(numHistoricSamples), static_cast<long long>(numSamples));
        return;
    }
    if (mIsInHighPowerMode) {
        if (numSamples > mNumSamplesRemainingToValidateWink) mNumSamplesRemainingToValidateWink = numSamples;
        __android_log_print(ANDROID_LOG_INFO, kTag, "Continue to stay in high power wink mode for %lld samples.",
                            static_cast<long long>(mNumSamplesRemainingToValidateWink));
        return;
    }
    mProxDataBuffer.addMarkerPacket();
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Switching into high power wink mode for %lld samples.   Adding ProxDataListener.",
                        static_cast<long long>(numSamples));
    mNumSamplesRemainingToValidateWink = numSamples;
    const float historyMs =
            static_cast<float>(numHistoricSamples) / GazeService::kExpectedDataRateHertz * 1000.0f;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Adding wink prox listener, requesting history millis: %f", historyMs);
    mProxSensor->addProxDataListener(this, static_cast<long long>(historyMs));
    mIsInHighPowerMode = true;
}

void WinkModule::exitHighPowerDetectionMode_l() {
    if (!mIsInHighPowerMode) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Warning: exitHighPowerDetectionMode_l() called when not in high power mode.");
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Switching off high power wink mode.  Removing ProxDataListener.");
    mNumSamplesRemainingToValidateWink = 0;
    mLowPowerWinkHoldoffSamples = 0;
    mProxSensor->removeProxDataListener(this);
    mIsInHighPowerMode = false;
    mProxDataBuffer.log(0, static_cast<int>(kWinkValidationSamples));
}

int WinkModule::updateWinkDetector_l(const ProxData& sample) {
    if (mWinkDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Wink detector is NULL!  Cannot update!");
        return GazeRecord::kInvalidDetectorResponse;
    }
    const float value = static_cast<float>(sample.mData & ProxData::kValueMask);
    return mWinkDetector->update(sample.mTimestampNanos, &value, 1);
}

void WinkModule::onProxDataDiscontinuity(long long, long long) {
    android::Mutex::Autolock lock(mLock);
    // No sample of the new clock is stale, wherever that clock starts.
    mLatestTimestampNs = std::numeric_limits<int64_t>::min();
    TimeStateDetectorInterface::resetTimeStateOf(mWinkDetector);
}

void WinkModule::onProxData(const ProxData& sample) {
    const int64_t gapThresholdNs = timestampGapThresholdNs();
    android::Mutex::Autolock lock(mLock);
    if (mLatestTimestampNs >= sample.mTimestampNanos) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Ignore stale timestamp! %lld (this) < %lld (latest)",
                            static_cast<long long>(sample.mTimestampNanos), static_cast<long long>(mLatestTimestampNs));
        return;
    }
    mLastProxEventTimeMs = android::elapsedRealtime();
    if (mNumProxPacketsRead++ % 100 == 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Packet count: %lld  was: %s",
                            static_cast<long long>(mNumProxPacketsRead), sample.toString().string());
    }
    const int result = updateWinkDetector_l(sample);
    mProxDataBuffer.addPacket(sample, result);

    if (mIsInHighPowerMode && mNumSamplesRemainingToValidateWink != kInfiniteNumSamples) {
        if (mLatestTimestampNs > 0 && sample.mTimestampNanos - mLatestTimestampNs > gapThresholdNs) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "WARNING: Timestamp gap: %lld msecs, count was %lld, reset counter",
                                static_cast<long long>((sample.mTimestampNanos - mLatestTimestampNs) / 1000000),
                                static_cast<long long>(mNumSamplesRemainingToValidateWink));
            mNumSamplesRemainingToValidateWink = kWinkValidationSamples;
        }
        // Samples the hub flagged as part of a wink keep the validation going.
        if (sample.flag() && mNumSamplesRemainingToValidateWink < kFlaggedSampleMinimumBudget) {
            mNumSamplesRemainingToValidateWink = kFlaggedSampleMinimumBudget;
        }
        if (--mNumSamplesRemainingToValidateWink == 0) exitHighPowerDetectionMode_l();
    }
    mLatestTimestampNs = sample.mTimestampNanos;
    if (mLowPowerWinkHoldoffSamples != 0) --mLowPowerWinkHoldoffSamples;

    if (result != GazeRecord::kInvalidDetectorResponse) {
        mGazeService->sendEyeGestureEventNow(static_cast<GazeServiceInterface::EyeGesture>(result));
        ++mNumHighPowerEvents;
        if (mOneShot) {
            __android_log_print(ANDROID_LOG_INFO, kTag, "WinkModule was started as a oneShot, so stopping on detection...");
            stop_l();
        }
    }
}

android::String8 WinkModule::dump() const {
    DumpLock lock(mLock, kTag);
    const int64_t now = android::elapsedRealtime();
    android::String8 out;
    out.appendFormat("WinkModule status: %s\n", mIsRunning.load() ? "on" : "off");
    out.append("Statistics:\n");
    out.appendFormat("Proximity packets read: %lld\n", static_cast<long long>(mNumProxPacketsRead));
    out.appendFormat("Number of HP events: %d\n", mNumHighPowerEvents);
    out.appendFormat("Number of LP events: %d\n", mNumLowPowerEvents);
    out.appendFormat("HP/LP ratio: %.2f\n",
                     mNumLowPowerEvents != 0 ? static_cast<double>(mNumHighPowerEvents) / mNumLowPowerEvents : 0.0);
    out.appendFormat("Last prox event (secs): %llu\n",
                     mLastProxEventTimeMs != 0 ? static_cast<unsigned long long>(now - mLastProxEventTimeMs) / 1000ULL : 0ULL);
    out.appendFormat("Last LP wink event (secs): %llu\n",
                     mLastLowPowerWinkTimeMs != 0 ? static_cast<unsigned long long>(now - mLastLowPowerWinkTimeMs) / 1000ULL
                                                  : 0ULL);
    out.appendFormat("High power mode: %s\n", mIsInHighPowerMode ? "on" : "off");
    out.appendFormat("mNumSamplesRemainingToValidateWink: %lld\n", static_cast<long long>(mNumSamplesRemainingToValidateWink));
    out.append("WinkDetector info:\n");
    out.append(mWinkDetector != nullptr ? mWinkDetector->getDebugString() : android::String8("NULL"));
    out.append("\n");
    mProxDataBuffer.dump(out);
    return out;
}

}  // namespace velto
