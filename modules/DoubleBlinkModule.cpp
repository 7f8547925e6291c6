#include "modules/DoubleBlinkModule.h"

#include <log/log.h>

#include "detectors/EyeGestureBoostingDetector.h"
#include "detectors/TimeStateDetectorInterface.h"
#include "service/GazeService.h"
#include "veltoutils/DumpLock.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:DoubleBlinkModule";
}

const char DoubleBlinkModule::kModuleName[] = "DoubleBlinkModule";
const char DoubleBlinkModule::kModuleVersion[] = "1.1.2";
const char DoubleBlinkModule::kDetectorFilename[] = "/system/etc/gaze/two_blink_detector_set.txt";
const unsigned int DoubleBlinkModule::kBufferCapacity =
        static_cast<unsigned int>(GazeService::kExpectedDataRateHertz * 10.0);

DoubleBlinkModule::DoubleBlinkModule(ProximitySensorInterface* proxSensor)
    : GazeServiceModuleCommon(kModuleName),
      mOneShot(false),
      mGazeService(nullptr),
      mProxSensor(proxSensor),
      mDetector(nullptr),
      mOwnsDetector(true),
      mTimeoutNumSamples(kInfiniteNumSamples),
      mProxDataBuffer(kBufferCapacity) {
    if (proxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "The proxSensor cannot be NULL!  The module will be invalid!");
        return;
    }
    mGazeService = GazeService::getInstance();
    if (mGazeService == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "GazeService singleton must not be NULL!");
        return;
    }
    mDetector = createDetector(kDetectorFilename);
    if (mDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to create a detector!  The module will be invalid!");
    }
}

DoubleBlinkModule::DoubleBlinkModule(ProximitySensorInterface* proxSensor, EyeGestureDetectorInterface* detector,
                                     GazeServiceInterface* service)
    : GazeServiceModuleCommon(kModuleName),
      mOneShot(false),
      mGazeService(service),
      mProxSensor(proxSensor),
      mDetector(detector),
      mOwnsDetector(false),
      mTimeoutNumSamples(kInfiniteNumSamples),
      mProxDataBuffer(kBufferCapacity) {}

DoubleBlinkModule::~DoubleBlinkModule() {
    {
        android::Mutex::Autolock lock(mLock);
        if (mIsRunning.load()) stop_l();
    }
    if (mOwnsDetector) delete mDetector;
}

EyeGestureDetectorInterface* DoubleBlinkModule::createDetector(const char* filename) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Create double blink detector.");
    EyeGestureBoostingDetector* detector = new EyeGestureBoostingDetector(GazeServiceInterface::DOUBLE_BLINK);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Loading detector file: %s...\n", Paths::resolve(filename).string());
    if (!detector->loadDetectorFromFile(filename)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not load detector from file.\n");
        delete detector;
        return nullptr;
    }
    return detector;
}

bool DoubleBlinkModule::canStart() const { return mDetector != nullptr; }

int DoubleBlinkModule::start(bool oneShot, int timeout) {
    android::Mutex::Autolock lock(mLock);
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return FAILED;
    }
    if (mDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDetector cannot be NULL!");
        return FAILED;
    }
    if (timeout == -1) {
        mTimeoutNumSamples = kInfiniteNumSamples;
    } else {
        mTimeoutNumSamples = timeoutMillisToSamples(timeout);
        __android_log_print(ANDROID_LOG_INFO, kTag, ">>>>> Start %s for %lld samples. <<<<<<", mName.string(),
                            static_cast<long long>(mTimeoutNumSamples));
    }
    if (mTimeoutNumSamples <= 0) {
        mTimeoutNumSamples = 0;
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mTimeoutNumSamples must be positive.");
        return FAILED;
    }
    mOneShot = oneShot;
    if (oneShot) __android_log_print(ANDROID_LOG_INFO, kTag, "Starting DoubleBlinkModule as a oneShot.");
    if (mIsRunning.load()) {
        // The new timeout and one-shot flag apply to the current run.
        __android_log_print(ANDROID_LOG_WARN, kTag, "start called again while already running.");
        return OK;
    }
    mProxSensor->addProxDataListener(this);
    mIsRunning.store(true);
    mProxDataBuffer.clear();
    return OK;
}

int DoubleBlinkModule::stop() {
    android::Mutex::Autolock lock(mLock);
    if (!mIsRunning.load()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "stop called when not running?");
        return OK;
    }
    return stop_l();
}

int DoubleBlinkModule::stop_l() {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mProxSensor cannot be NULL!");
        return FAILED;
    }
    mProxSensor->removeProxDataListener(this);
    mIsRunning.store(false);
    mOneShot = false;
    return OK;
}

int DoubleBlinkModule::updateDetector_l(const ProxData& sample) const {
    if (mDetector == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDetector is NULL!  Cannot update!");
        return GazeRecord::kInvalidDetectorResponse;
    }
    const float value = static_cast<float>(sample.mData & ProxData::kValueMask);
    return mDetector->update(sample.mTimestampNanos, &value, 1);
}

void DoubleBlinkModule::onProxDataDiscontinuity(long long, long long) {
    android::Mutex::Autolock lock(mLock);
    TimeStateDetectorInterface::resetTimeStateOf(mDetector);
}

void DoubleBlinkModule::onProxData(const ProxData& sample) {
    android::Mutex::Autolock lock(mLock);
    const int result = updateDetector_l(sample);
    mProxDataBuffer.addPacket(sample, result);
    if (mTimeoutNumSamples != kInfiniteNumSamples) {
        --mTimeoutNumSamples;
        if (mTimeoutNumSamples == 0) {
            __android_log_print(ANDROID_LOG_INFO, kTag, "%s timeout.", mName.string());
            stop_l();
        }
    }
    if (result != GazeRecord::kInvalidDetectorResponse) {
        mGazeService->sendEyeGestureEventNow(static_cast<GazeServiceInterface::EyeGesture>(result));
        if (mOneShot) {
            __android_log_print(ANDROID_LOG_INFO, kTag, "DoubleBlinkModule was started as a oneShot, so stopping on detection...");
            stop_l();
        }
    }
}

android::String8 DoubleBlinkModule::getVersionString() const {
    return android::String8::format("DoubleBlinkModule: %s Detector: %s", kModuleVersion,
                                    mDetector != nullptr ? mDetector->getVersionString().string() : "NULL");
}

android::String8 DoubleBlinkModule::dump() const {
    DumpLock lock(mLock, kTag);
    android::String8 out;
    out.appendFormat("DoubleBlinkModule status: %s\n", mIsRunning.load() ? "on" : "off");
    out.append("DoubleBlinkDetector info:\n");
    out.append(mDetector != nullptr ? mDetector->getDebugString() : android::String8("NULL"));
    out.append("\n");
    mProxDataBuffer.dump(out);
    return out;
}

}  // namespace velto
