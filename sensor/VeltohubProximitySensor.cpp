// The sensor singleton, its start and stop, and the listener bookkeeping with
// the dispatch of samples, interrupts and replayed history.
#include "sensor/VeltohubProximitySensor.h"

#include <cutils/atomic.h>
#include <hardware_legacy/power.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "sensor/VeltohubCommands.h"
#include "sensor/VeltohubThread.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:Veltohub";
}

const char VeltohubProximitySensor::kDataDevicePath[] = "/dev/veltohub";
const char VeltohubProximitySensor::kSysfsDirectory[] = "/sys/devices/platform/omap_i2c.4/i2c-4/4-0035/";
const char VeltohubProximitySensor::kControlPipePath[] = "/data/system/gaze/gaze_service_control_pipe";
const char VeltohubProximitySensor::kFirmwarePath[] = "/system/vendor/firmware/veltohub.s19";
const char VeltohubProximitySensor::kDataWakeLockName[] = "Veltohub_ProxData_WakeLock";
const char VeltohubProximitySensor::kEventWakeLockName[] = "WakeLock_ProximitySensor_EventInterrupt";

android::Mutex VeltohubProximitySensor::smSingletonLock;
VeltohubProximitySensor* VeltohubProximitySensor::smSingleton = nullptr;
std::atomic<bool> VeltohubProximitySensor::smHubRecoveryEnabled{false};

void VeltohubProximitySensor::setHubRecoveryEnabled(bool enabled) { smHubRecoveryEnabled.store(enabled); }

bool VeltohubProximitySensor::isHubRecoveryEnabled() { return smHubRecoveryEnabled.load(); }

VeltohubProximitySensor* VeltohubProximitySensor::getInstance() {
    android::Mutex::Autolock lock(smSingletonLock);
    if (smSingleton == nullptr) {
        if (!existsOnDevice()) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "Error: Can't getInstance() on VeltohubProximitySensor since hardware not found!");
        } else {
            smSingleton = new VeltohubProximitySensor();
            if (!smSingleton->start()) {
                __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: cannot start the singleton VeltohubProximitySensor!");
                delete smSingleton;  // still the singleton here, so its destructor warns
                smSingleton = nullptr;
            } else {
                // Registered after every static the event thread uses exists,
                // so it runs before any of them is destroyed.
                static bool registered = false;
                if (!registered) registered = atexit(stopAtExit) == 0;
            }
        }
    }
    return smSingleton;
}

VeltohubProximitySensor::VeltohubProximitySensor()
    : mRecovery(smHubRecoveryEnabled.load()),
      mProxDataListenersChanged(false),
      mHistoryBuffer(kHistorySize, ProxData::kInvalidInstance),
      mDonDoffState(false),
      mUserPaused(false),
      mIgnoredPacketCount(0),
      mDataFd(-1),
      mBatchCursor(0),
      mBatchPacketsLeft(0),
      mPacketCount(0),
      mFailedReads(0),
      mReadWouldBlock(false),
      mFailingSinceMs(0),
      mLastReopenMs(0),
      mDeviceRetryAtMs(-1),
      mRequestPipeFd(-1),
      mExecutionPipeFd(-1),
      mStreaming(0),
      mThreadRunning(false),
      mWantPaused(true),
      mWantStreaming(false),
      mHubStateSuspect(false),
      mNextSuspectCheckMs(0),
      mListenerCount(0),
      mLastHubClockNs(kUnknownClock),
      mStreamRestarted(true),
      mSysfsDir(Paths::resolve(kSysfsDirectory)) {
    memset(mBatch, 0, sizeof(mBatch));
    for (struct pollfd& entry : mPollFds) {
        entry.fd = -1;
        entry.events = 0;
        entry.revents = 0;
    }
}

VeltohubProximitySensor::~VeltohubProximitySensor() {
    if (this == smSingleton) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Warning: Destructor for VeltohubProximitySensor called on a singleton!");
    }
    stop();
    closePollingStructs();
    tearDownRequestControlPipe();
    tearDownExecutionControlPipe();
    closeDataFile();
    // Commands that never ran are owned by the queue.
    android::Mutex::Autolock lock(mSensorLock);
    for (android::List<CommandInterface*>::iterator it = mCommands.begin(); it != mCommands.end(); ++it) delete *it;
    mCommands.clear();
}

void VeltohubProximitySensor::stopAtExit() {
    // The process is ending with the service running: stop the event thread
    // while everything it uses still exists, and leave the hub paused.
    VeltohubProximitySensor* sensor = nullptr;
    {
        android::Mutex::Autolock lock(smSingletonLock);
        sensor = smSingleton;
    }
    // Without its control pipe the thread could not be woken to stop.
    if (sensor != nullptr && sensor->isStarted() && sensor->mRequestPipeFd > 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Process exit: stopping the sensor and pausing the hub.");
        sensor->stop();
    }
}

bool VeltohubProximitySensor::start() {
    android::Mutex::Autolock lock(mSensorLock);
    if (!checkFirmware(false)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad firmware!");
        return false;
    }
    if (!isHardwareAvailable()) return false;
    setupExecutionControlPipe();
    setupRequestControlPipe();
    if (mRecovery && (mExecutionPipeFd < 0 || mRequestPipeFd < 0)) {
        // Without the pipe nothing could wake the thread, not even to stop it.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "No control pipe: the sensor's event thread is not started.");
        tearDownRequestControlPipe();
        tearDownExecutionControlPipe();
        return false;
    }
    requestStopStreamingData_l();
    openDataFile();
    setupPollingStructs();
    setPauseInternal(true);
    setActivityThreshold(5);
    startThread_l();
    return mThread != nullptr;
}

void VeltohubProximitySensor::stop() {
    if (!mThreadRunning.load()) return;
    // Joined without the sensor mutex: a command or a listener running on the
    // event thread may be waiting for it.
    stopThread();
    android::Mutex::Autolock lock(mSensorLock);
    closePollingStructs();
    tearDownRequestControlPipe();
    tearDownExecutionControlPipe();
    closeDataFile();
    destroyControlPipe();
    // With recovery, nobody reading the device any more also ends streaming
    // and the data wake lock (a named lock, which outlives the process).
    if (mRecovery && (mWantStreaming || android_atomic_acquire_load(&mStreaming) != 0)) {
        stopStreamingData();
        release_wake_lock(kDataWakeLockName);
    }
    setPauseInternal(true);
}

android::String8 VeltohubProximitySensor::getNameString() const { return android::String8("Veltohub Proximity Sensor"); }

bool VeltohubProximitySensor::isHardwareAvailable() const { return existsOnDevice(); }

bool VeltohubProximitySensor::isDonDoffEnabled() const {
    android::Mutex::Autolock lock(mListenerLock);
    return !mDonDoffListeners.isEmpty();
}

bool VeltohubProximitySensor::isLowPowerMode() const { return !isStreamingData(); }

bool VeltohubProximitySensor::forceFirmwareUpdate() {
    android::Mutex::Autolock lock(mSensorLock);
    return checkFirmware(true);
}

void VeltohubProximitySensor::flush() {
    android::Mutex::Autolock lock(mSensorLock);
    queueCommand_l(new FlushFifoCommand(this));
}

void VeltohubProximitySensor::addProxDataListener(ProxDataListener* listener) { addProxDataListener(listener, 0); }

void VeltohubProximitySensor::addProxDataListener(ProxDataListener* listener, long long historyMs) {
    if (listener == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not add ProxDataListener. NULL pointer.");
        return;
    }
    android::Mutex::Autolock listenerLock(mListenerLock);
    ProxDataListenerInfo info;
    info.listener = listener;
    info.deviceNowNs = readCurrentTimestampFromHub();
    info.deviceHorizonNs = info.deviceNowNs - static_cast<int64_t>(historyMs) * 1000000LL;
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "Streaming historical data for %lld ms.  deviceNowNs = %lld   deviceHorizonNs = %lld", historyMs,
                        static_cast<long long>(info.deviceNowNs), static_cast<long long>(info.deviceHorizonNs));
    if (historyMs >= 1) {
        android::Mutex::Autolock lock(mSensorLock);
        queueCommand_l(new StreamHistoricalDataCommand(this, info));
    }
    mProxDataListeners.push(info);
    {
        android::Mutex::Autolock lock(mSensorLock);
        updateProxSensorStatus_l();
    }
    mProxDataListenersChanged = true;

    struct timeval tv;
    gettimeofday(&tv, nullptr);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Added ProxDataListener at epoch time %lld ms. There are now %d listeners.",
                        static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000,
                        static_cast<int>(mProxDataListeners.size()));
    if (mProxDataListeners.size() == 1) {
        android::Mutex::Autolock lock(mSensorLock);
        requestStartStreamingData_l();
        incrementWakeLock_l();
    }
}

void VeltohubProximitySensor::removeProxDataListener(ProxDataListener* listener) {
    android::Mutex::Autolock listenerLock(mListenerLock);
    bool removed = false;
    // The index advances after a removal too, so of two adjacent entries of the
    // same listener the second is passed over.
    for (size_t i = 0; i < mProxDataListeners.size(); ++i) {
        if (mProxDataListeners[i].listener == listener) {
            mProxDataListeners.removeAt(i);
            removed = true;
        }
    }
    {
        android::Mutex::Autolock lock(mSensorLock);
        updateProxSensorStatus_l();
    }
    mProxDataListenersChanged = true;
    const int count = static_cast<int>(mProxDataListeners.size());
    if (!removed) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "FAILED: Removing ProxDataListener.  There are now: %d", count);
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Removed ProxDataListener. There are now: %d", count);
    if (count == 0) {
        android::Mutex::Autolock lock(mSensorLock);
        requestStopStreamingData_l();
        release_wake_lock(kDataWakeLockName);
    }
}

void VeltohubProximitySensor::addDonDoffListener(DonDoffListener* listener, bool notifyNow) {
    {
        android::Mutex::Autolock listenerLock(mListenerLock);
        mDonDoffListeners.push(listener);
        {
            android::Mutex::Autolock lock(mSensorLock);
            updateProxSensorStatus_l();
        }
        __android_log_print(ANDROID_LOG_INFO, kTag, "Added a DonDoffListener.  There are now: %d listeners.",
                            static_cast<int>(mDonDoffListeners.size()));
        if (mDonDoffListeners.size() == 1) enableDonDoffInterrupts(true);
    }
    if (notifyNow && listener != nullptr) listener->onDonDoff(mDonDoffState.load());
}

void VeltohubProximitySensor::removeDonDoffListener(DonDoffListener* listener) {
    android::Mutex::Autolock listenerLock(mListenerLock);
    bool removed = false;
    for (size_t i = 0; listener != nullptr && i < mDonDoffListeners.size(); ++i) {
        if (mDonDoffListeners[i] == listener) {
            mDonDoffListeners.removeAt(i);
            removed = true;
            break;
        }
    }
    {
        android::Mutex::Autolock lock(mSensorLock);
        updateProxSensorStatus_l();
    }
    const int count = static_cast<int>(mDonDoffListeners.size());
    if (!removed) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "FAILED: Removing DonDoffListener.  There are now: %d", count);
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Removed DonDoffListener.  There are now: %d", count);
    if (count == 0) enableDonDoffInterrupts(false);
}

void VeltohubProximitySensor::addLowPowerWinkListener(LowPowerWinkListener* listener) {
    android::Mutex::Autolock listenerLock(mListenerLock);
    mLowPowerWinkListeners.push(listener);
    {
        android::Mutex::Autolock lock(mSensorLock);
        updateProxSensorStatus_l();
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Added a LowPowerWinkListener.  There are now: %d",
                        static_cast<int>(mLowPowerWinkListeners.size()));
    if (mLowPowerWinkListeners.size() == 1) enableLowPowerWinkInterrupts(true);
}

void VeltohubProximitySensor::removeLowPowerWinkListener(LowPowerWinkListener* listener) {
    android::Mutex::Autolock listenerLock(mListenerLock);
    bool removed = false;
    for (size_t i = 0; listener != nullptr && i < mLowPowerWinkListeners.size(); ++i) {
        if (mLowPowerWinkListeners[i] == listener) {
            mLowPowerWinkListeners.removeAt(i);
            removed = true;
            break;
        }
    }
    {
        android::Mutex::Autolock lock(mSensorLock);
        updateProxSensorStatus_l();
    }
    const int count = static_cast<int>(mLowPowerWinkListeners.size());
    if (!removed) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "FAILED: Removing LowPowerWinkListener. There are now: %d", count);
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Removed LowPowerWinkListener. There are now: %d", count);
    if (count == 0) enableLowPowerWinkInterrupts(false);
}

void VeltohubProximitySensor::removeAllListeners() {
    android::Mutex::Autolock listenerLock(mListenerLock);
    mDonDoffListeners.clear();
    mLowPowerWinkListeners.clear();
    mProxDataListeners.clear();
    mProxDataListenersChanged = true;
}

void VeltohubProximitySensor::updateProxSensorStatus_l() {
    // Caller holds the listener mutex too, so the three lists are stable.
    const size_t count = mDonDoffListeners.size() + mLowPowerWinkListeners.size() + mProxDataListeners.size();
    mListenerCount.store(static_cast<int>(count));
    if (mUserPaused.load()) return;
    queueCommand_l(new PauseCommand(this, count == 0));
}

void VeltohubProximitySensor::syncProxDataListenersIterator_l() {
    if (mProxDataListenersChanged) {
        mProxDataListenersSnapshot = mProxDataListeners;
        mProxDataListenersChanged = false;
    }
}

void VeltohubProximitySensor::dispatchProxData(const ProxData& sample) {
    {
        android::Mutex::Autolock listenerLock(mListenerLock);
        syncProxDataListenersIterator_l();
    }
    // Delivered without any lock: listeners may add or remove listeners.
    bool counted = false;
    for (size_t i = 0; i < mProxDataListenersSnapshot.size(); ++i) {
        const ProxDataListenerInfo& info = mProxDataListenersSnapshot[i];
        if (sample.mTimestampNanos >= info.deviceHorizonNs) {
            processOneProxFrameWithOneListener(info, sample);
        } else if (!counted) {
            if (mIgnoredPacketCount % 20 == 0) {
                __android_log_print(ANDROID_LOG_WARN, kTag, "Packet at %lld ignored by listener with first timestamp %lld.",
                                    static_cast<long long>(sample.mTimestampNanos),
                                    static_cast<long long>(info.deviceHorizonNs));
            }
            ++mIgnoredPacketCount;
            counted = true;
        }
    }
}

void VeltohubProximitySensor::processOneProxFrameWithOneListener(const ProxDataListenerInfo& info,
                                                                 const ProxData& sample) {
    if (info.listener == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot have NULL listener!");
        return;
    }
    info.listener->onProxData(sample);
}

void VeltohubProximitySensor::invokeListenerWithHistoricalPackets(const ProxDataListenerInfo& info) {
    if (info.deviceHorizonNs < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Warning: device timestamps are negative!  Not streaming historical data.");
        return;
    }
    // Samples strictly after the horizon, counted from the newest.
    unsigned int count = 0;
    while (count < mHistoryBuffer.size() && mHistoryBuffer.getAtDelay(count).mTimestampNanos > info.deviceHorizonNs) {
        ++count;
    }
    if (count == 0) return;
    __android_log_print(ANDROID_LOG_INFO, kTag, "Streaming %d historical data packets to listener.", count);
    int64_t latest = -1;
    for (int delay = static_cast<int>(count) - 1; delay >= 0; --delay) {
        // A copy: the listener may trigger a flush that empties the ring.
        const ProxData sample = mHistoryBuffer.getAtDelay(static_cast<unsigned int>(delay));
        if (latest >= sample.mTimestampNanos) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Ignore backward timestamp at horizonIndex %d! %lld (this) < %lld (latest)",
                                delay, static_cast<long long>(sample.mTimestampNanos), static_cast<long long>(latest));
            continue;
        }
        processOneProxFrameWithOneListener(info, sample);
        latest = sample.mTimestampNanos;
    }
}

void VeltohubProximitySensor::setDonDoffStateAndCallListenersIfNeeded(bool donned) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Don Doff State changing to: %s", donned ? "true" : "false");
    android::Vector<DonDoffListener*> listeners;
    {
        android::Mutex::Autolock listenerLock(mListenerLock);
        listeners = mDonDoffListeners;
    }
    for (size_t i = 0; i < listeners.size(); ++i) {
        if (listeners[i] != nullptr) listeners[i]->onDonDoff(donned);
    }
}

void VeltohubProximitySensor::callLowPowerWinkListeners() {
    android::Vector<LowPowerWinkListener*> listeners;
    {
        android::Mutex::Autolock listenerLock(mListenerLock);
        listeners = mLowPowerWinkListeners;
    }
    for (size_t i = 0; i < listeners.size(); ++i) {
        if (listeners[i] != nullptr) listeners[i]->onLowPowerWink();
    }
}

}  // namespace velto
