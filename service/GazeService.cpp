#include "service/GazeService.h"

#include <log/log.h>
#include <utils/SystemClock.h>
#include <utils/Timers.h>

#include "modules/GazeServiceModuleInterface.h"
#include "proxdata/ProxDataLogger.h"
#include "sensor/ProximitySensorInterface.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {

const char kTag[] = "GazeService";

// Every gesture is reported as a span that ends now and began this long ago.
const int64_t kEventSpanNanos = 10000000;

const android::String8 kEyeGestureNames[GazeServiceInterface::NUM_EYE_GESTURES] = {
        android::String8("WINK"),         android::String8("DOUBLE_WINK"), android::String8("BLINK"),
        android::String8("DOUBLE_BLINK"), android::String8("DON"),         android::String8("DOFF"),
        android::String8("LOOK_AT_SCREEN"), android::String8("LOOK_AWAY_FROM_SCREEN"),
};

}  // namespace

const float GazeService::kExpectedDataRateHertz = 32.0f;
const android::String8 GazeService::kVersion("0.12.1");

android::Mutex GazeService::smSingletonLock;
GazeService* GazeService::smSingleton = nullptr;

GazeServiceInterface* GazeServiceInterface::getInstance() { return GazeService::getInstance(); }

GazeService* GazeService::getInstance() {
    android::Mutex::Autolock lock(smSingletonLock);
    if (smSingleton == nullptr) {
        smSingleton = new GazeService();
        // The process holds one strong reference for its whole life.
        smSingleton->incStrong(&smSingleton);
    }
    return smSingleton;
}

const android::String8& GazeService::eyeGestureAsString8(EyeGesture gesture) {
    // Clients may pass any int; a value outside the table must not read past it.
    static const android::String8 kUnknownGesture("UNKNOWN_GESTURE");
    const unsigned int index = static_cast<unsigned int>(gesture);
    return index < NUM_EYE_GESTURES ? kEyeGestureNames[index] : kUnknownGesture;
}

GazeServiceInterface::EyeGesture GazeService::intToEyeGesture(int n) {
    return static_cast<unsigned int>(n) < NUM_EYE_GESTURES ? static_cast<EyeGesture>(n) : NUM_EYE_GESTURES;
}

GazeService::GazeService() : GazeService(nullptr, Utils::getVeltoSerialNumber()) {}

GazeService::GazeService(ProximitySensorInterface* sensor, const android::String8& serialNumber)
    : mProxSensor(sensor),
      mIsLogging(false),
      mResumeLoggingOnUnpause(false),
      mMasterEnable(true),
      mProxDataLogger(new ProxDataLogger()),
      mStartTime(0),
      mSerialNumber(serialNumber) {
    for (auto& module : mModuleByGesture) module.store(nullptr);
}

GazeService::~GazeService() {
    stop();
    for (size_t i = 0; i < mModules.size(); ++i) delete mModules[i];
    mModules.clear();
    for (auto& module : mModuleByGesture) module.store(nullptr);
    delete mProxDataLogger;
    std::lock_guard<std::mutex> lock(mListenerLock);
    mGazeListener.clear();
}

void GazeService::setGazeListener(const android::sp<GazeListenerInterface>& listener) {
    android::Mutex::Autolock lock(mLock);
    android::sp<GazeListenerInterface> old;
    {
        std::lock_guard<std::mutex> listenerLock(mListenerLock);
        old = mGazeListener;  // released after the locks, in case it is the last reference
        mGazeListener = listener;
    }
}

bool GazeService::getMasterEnable() const { return mMasterEnable.load(); }

void GazeService::setMasterEnable(bool enable) {
    android::Mutex::Autolock lock(mLock);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Setting master enable to %s.", enable ? "true" : "false");
    mMasterEnable.store(enable);
    updateProxSensorPauseState_l();
}

void GazeService::updateProxSensorPauseState_l() {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: null prox sensor?!");
        return;
    }
    const bool enable = mMasterEnable.load();
    // An unknown sensor state never equals the wanted one, so it is always set.
    if (mProxSensor->isPaused() == Utils::toTriStateBool(!enable)) return;

    if (!enable && mIsLogging.load()) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "GazeService is pausing and is stopping the data logger until resume...");
        stopLogging_l();
        mResumeLoggingOnUnpause = true;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Setting prox sensor pause state to %s.", enable ? "false" : "true");
    mProxSensor->setPause(!enable);
    if (enable && mResumeLoggingOnUnpause) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "GazeService is resuming and is starting a new log...");
        mResumeLoggingOnUnpause = false;
        startLogging_l(android::String8(""));
    }
}

bool GazeService::start() {
    android::Mutex::Autolock lock(mLock);
    bool started = start_l();
    mStartTime.store(android::elapsedRealtime());
    return started;
}

bool GazeService::start_l() {
    if (!mMasterEnable.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Cannot start GazeService, the master enable is false!");
        return false;
    }
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Starting GazeService...");
        if (!initProxSensor_l()) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "Failed to attach to the proximity sensor hardware!  GazeService cannot start!");
            return false;
        }
    }
    if (!mModules.isEmpty()) return true;
    createModules();
    for (size_t i = 0; i < mModules.size(); ++i) mModules[i]->serviceReady();
    return true;
}

void GazeService::stop() {
    if (isLogging()) stopLogging();
    android::Mutex::Autolock lock(mLock);
    stopAllModules_l();
}

bool GazeService::startLogging() { return startLogging(android::String8("")); }

bool GazeService::startLogging(const android::String8& fileName) {
    android::Mutex::Autolock lock(mLock);
    if (!start_l()) return false;
    if (mIsLogging.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Already logging... ignoring new call to startLogging...");
        return false;
    }
    return startLogging_l(fileName);
}

bool GazeService::stopLogging() {
    if (!mIsLogging.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "stopLogging called but we are not currently logging.  Not doing anything...");
        return false;
    }
    android::Mutex::Autolock lock(mLock);
    return stopLogging_l();
}

bool GazeService::isLogging() const {
    android::Mutex::Autolock lock(mLock);
    return mProxSensor != nullptr && mProxDataLogger->isOpen();
}

bool GazeService::isRunning() const {
    android::Mutex::Autolock lock(mLock);
    return isRunning_l();
}

bool GazeService::isRunning_l() const { return mProxSensor != nullptr && mMasterEnable.load(); }

void GazeService::sendEyeGestureEventNow(EyeGesture gesture) {
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Sending an EyeGesture event= %s  up time now=%lld\n",
                        eyeGestureAsString8(gesture).string(), static_cast<long long>(now));
    android::sp<GazeListenerInterface> listener;
    {
        std::lock_guard<std::mutex> lock(mListenerLock);
        listener = mGazeListener;
    }
    if (listener == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "No gaze listener set: %s event dropped.",
                            eyeGestureAsString8(gesture).string());
        return;
    }
    listener->onEyeGesture(gesture, now - kEventSpanNanos, now);
}

}  // namespace velto
