#include "modules/DonDoffModule.h"

#include <log/log.h>
#include <utils/SystemClock.h>

#include "calibration/MCUParams.h"
#include "service/GazeService.h"
#include "veltoutils/DumpLock.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:DonDoffModule";
// The raw FIFO words are printed on one line.
const android::String8 kFifoSeparator(" ");
}  // namespace

const char DonDoffModule::kModuleName[] = "DonDoffModule";
const char DonDoffModule::kModuleVersion[] = "DonDoffModule 1.0";

DonDoffModule::DonDoffModule(ProximitySensorInterface* proxSensor)
    : GazeServiceCalibratedModuleBase(kModuleName),
      mProxSensor(proxSensor),
      mElapsedDonTimeMs(0),
      mLastDonTimeMs(0),
      mLastDoffTimeMs(0) {
    if (proxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: cannot construct a DonDoffModule with a NULL prox sensor!");
        return;
    }
    mCalibrator = new DonDoffCalibrator(proxSensor);
}

DonDoffModule::~DonDoffModule() {
    android::Mutex::Autolock lock(mLock);
    if (mIsRunning.load()) stop_l();
}

void DonDoffModule::serviceReady() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading calibration...");
    if (loadCalibration() == OK) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "... done loading calibration.");
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Failed to load calibration!");
    }
}

bool DonDoffModule::canStart() const { return hasValidCalibration(); }

int DonDoffModule::start(bool /*oneShot*/, int timeout) {
    if (timeout != -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unsupported: DonDoffModule cannot be run in a timeout mode yet.");
        return UNSUPPORTED;
    }
    android::Mutex::Autolock lock(mLock);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: mProxSensor cannot be NULL.");
        return NO_SENSOR;
    }
    if (!mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Enabling hardware don/doff detection on proximity sensor...");
        mProxSensor->addDonDoffListener(this, false);
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag, "DonDoffModule was already running...  nothing to do.");
    }
    mIsRunning.store(true);
    return OK;
}

int DonDoffModule::stop() {
    android::Mutex::Autolock lock(mLock);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return NO_SENSOR;
    }
    return stop_l();
}

int DonDoffModule::stop_l() {
    if (!mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "DonDoffModule was not running and stop was requested.  Nothing to do...");
    } else {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Disabling hardware don/doff detection on proximity sensor...");
        mProxSensor->removeDonDoffListener(this);
    }
    mIsRunning.store(false);
    return OK;
}

bool DonDoffModule::hasValidCalibration() const {
    android::Mutex::Autolock lock(mLock);
    // A file whose values the hub would refuse or wrap is no calibration.
    MCUParams params;
    return params.loadCheckedFromFile(MCUParams::kMcuParamsFilename);
}

// A module without a sensor has no calibrator; the service never creates one,
// but the calibration calls still answer instead of crashing.
int DonDoffModule::loadCalibration() {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->loadCalibration() ? OK : FAILED;
}

int DonDoffModule::commitCalibration() {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "DonDoffModule::commitCalibration() is not implemented yet. Use DonDoffModule::saveCalibration() "
                        "for now. Just return OK.");
    return OK;
}

int DonDoffModule::clearCalibration() {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->clearCalibration() ? OK : FAILED;
}

int DonDoffModule::saveCalibration() const {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->updateAndSaveCalibration() ? OK : FAILED;
}

int DonDoffModule::beginCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->beginCalibrationInterval() ? OK : FAILED;
}

int DonDoffModule::endCalibrationInterval() {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->endCalibrationInterval() ? OK : FAILED;
}

bool DonDoffModule::isCalibrationComplete() const {
    android::Mutex::Autolock lock(mLock);
    return mCalibrator != nullptr && mCalibrator->isCalibrationComplete();
}

android::String8 DonDoffModule::getVersionString() const { return android::String8(kModuleVersion); }

void DonDoffModule::onDonDoff(bool donned) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "onDonDoff() called with state = %s", donned ? "true" : "false");
    const uint64_t now = static_cast<uint64_t>(android::elapsedRealtime());
    if (!donned) {
        GazeService::getInstance()->sendEyeGestureEventNow(GazeServiceInterface::DOFF);
        // A repeated DOFF counts the last worn period again.
        const uint64_t lastDon = mLastDonTimeMs.load();
        if (lastDon != 0) mElapsedDonTimeMs.fetch_add(now - lastDon);
        mLastDoffTimeMs.store(now);
    } else {
        GazeService::getInstance()->sendEyeGestureEventNow(GazeServiceInterface::DON);
        mLastDonTimeMs.store(now);
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "MCU Raw FIFO: %s", mProxSensor->getRawFifoDataString(kFifoSeparator).string());
}

android::String8 DonDoffModule::dump() const {
    DumpLock lock(mLock, kTag);
    const uint64_t now = static_cast<uint64_t>(android::elapsedRealtime());
    const uint64_t elapsed = mElapsedDonTimeMs.load();
    const uint64_t lastDon = mLastDonTimeMs.load();
    const uint64_t lastDoff = mLastDoffTimeMs.load();
    android::String8 out;
    // While the device is on, the running period is added in milliseconds and
    // the sum is not divided: the dump has always shown it so.
    const unsigned long long donTime = lastDoff >= lastDon ? elapsed / 1000 : elapsed + (now - lastDon);
    out.appendFormat("Elapsed don time (secs): %llu\n", donTime);
    out.appendFormat("Last don event (secs): %llu\n",
                     static_cast<unsigned long long>(lastDon != 0 ? (now - lastDon) / 1000 : 0));
    out.appendFormat("Last doff event (secs): %llu\n",
                     static_cast<unsigned long long>(lastDoff != 0 ? (now - lastDoff) / 1000 : 0));
    out.appendFormat("\n%s\n", mCalibrator != nullptr ? mCalibrator->dump().string() : "");
    return out;
}

}  // namespace velto
