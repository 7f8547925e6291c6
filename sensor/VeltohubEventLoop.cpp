// VeltohubProximitySensor: the event thread's loop, the interrupt handlers,
// pause, streaming, the FIFO flush and the wake locks.
#include <cutils/atomic.h>
#include <errno.h>
#include <fcntl.h>
#include <hardware_legacy/power.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <utils/SystemClock.h>
#include <utils/Timers.h>

#include <atomic>

#include "sensor/VeltohubCommands.h"
#include "sensor/VeltohubThread.h"
#include "veltoutils/AutoWakeLock.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:Veltohub";
const char kThreadName[] = "GazeService::VeltohubProximitySensor::VeltohubThread";

// Wake-ups that found the device ready while not streaming, in this process.
std::atomic<long long> gNotStreamingReadyCount{0};

// The delay before the thread's first turn; host builds may shorten it.
unsigned int threadDelayMillis() {
#ifdef __ANDROID__
    return VeltohubProximitySensor::kThreadDelayMillis;
#else
    static const unsigned int delay = [] {
        const char* env = getenv("VELTOGAZE_THREAD_DELAY_MS");
        if (env == nullptr || env[0] == '\0') return VeltohubProximitySensor::kThreadDelayMillis;
        char* end = nullptr;
        unsigned long value = strtoul(env, &end, 10);
        return (end != nullptr && *end == '\0') ? static_cast<unsigned int>(value)
                                                : VeltohubProximitySensor::kThreadDelayMillis;
    }();
    return delay;
#endif
}

}  // namespace

void VeltohubProximitySensor::startThread_l() {
    if (mThread != nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "VeltohubThread was already running!  Nothing to do.");
        return;
    }
    mThread = new VeltohubThread(this, threadDelayMillis());
    mThreadRunning.store(true);
    if (mThread->run(kThreadName, android::PRIORITY_DEFAULT, 0) != android::NO_ERROR) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Got error when calling run() on VeltohubThread!");
        mThread.clear();
        mThreadRunning.store(false);
    }
}

void VeltohubProximitySensor::stopThread() {
    android::sp<VeltohubThread> thread;
    {
        android::Mutex::Autolock lock(mSensorLock);
        thread = mThread;
        if (thread == nullptr) return;
        thread->requestExit();
        queueControlSignal_l(INTERRUPT_THREAD);
    }
    thread->join();
    // The exiting thread drops its own reference to the thread object just
    // after join() returns. Waiting for that (microseconds) makes the object
    // die here, after join's synchronisation, and not on the exiting thread
    // while this one may still touch it.
    for (int i = 0; i < 10000 && thread->getStrongCount() > 2; ++i) usleep(100);
    android::Mutex::Autolock lock(mSensorLock);
    mThread.clear();
    mThreadRunning.store(false);
}

bool VeltohubProximitySensor::setupInterruptPollingStruct(struct pollfd* entry, const android::String8& node) {
    android::String8 path = getFullPath(mSysfsDir, node);
    entry->fd = open(path.string(), O_RDONLY | O_CLOEXEC);
    if (entry->fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error opening the polling fd for %s.  Err=%d", path.string(), errno);
        return false;
    }
    entry->events = POLLPRI | POLLERR;
    entry->revents = 0;
    return true;
}

bool VeltohubProximitySensor::setupPollingStructs() {
    bool ok = setupInterruptPollingStruct(&mPollFds[1], android::String8("don_doff"));
    ok = setupInterruptPollingStruct(&mPollFds[2], android::String8("wink")) && ok;
    mPollFds[0].fd = mDataFd;
    mPollFds[0].events = POLLIN;
    mPollFds[0].revents = 0;
    mPollFds[3].fd = mExecutionPipeFd;
    mPollFds[3].events = POLLIN | POLLERR;
    mPollFds[3].revents = 0;
    return ok;
}

void VeltohubProximitySensor::closePollingStructs() {
    for (int i = 0; i < 4; ++i) {
        // The data device and the pipe are closed by their owners.
        if (i == 0 || i == 3) {
            mPollFds[i].fd = -1;
            continue;
        }
        if (mPollFds[i].fd > 0) close(mPollFds[i].fd);
        mPollFds[i].fd = -1;
    }
}

int VeltohubProximitySensor::pollTimeoutMillis(int64_t nowMs) const {
    // Without recovery the thread sleeps until something happens.
    if (!mRecovery) return -1;
    int64_t timeout = -1;
    if (mDeviceRetryAtMs >= 0) timeout = mDeviceRetryAtMs > nowMs ? mDeviceRetryAtMs - nowMs : 0;
    // With nobody listening the hub is paused and nothing needs watching.
    if (mListenerCount.load() > 0 || mWantStreaming || mHubStateSuspect.load()) {
        const int64_t check = (mWantStreaming && !mWantPaused) ? kStreamingCheckMillis
                              : mHubStateSuspect.load()           ? kIdleCheckMillis
                                                                  : kQuietCheckMillis;
        if (timeout < 0 || check < timeout) timeout = check;
    }
    return static_cast<int>(timeout);
}

bool VeltohubProximitySensor::executeEventLoopOnceBlocking() {
    // Only recovery looks at the clock.
    int64_t now = mRecovery ? android::uptimeMillis() : 0;
    if (mDeviceRetryAtMs >= 0 && now >= mDeviceRetryAtMs) retryDataDevice(now);
    const bool streaming = android_atomic_acquire_load(&mStreaming) != 0;
    struct pollfd* first = streaming ? &mPollFds[0] : &mPollFds[1];
    const nfds_t count = streaming ? 4 : 3;
    // With recovery, packets left from the last batch read count as a ready
    // device: the poll only looks whether anything else is ready too.
    // Otherwise the tail of a batch waits for the hub's next packet, and is
    // lost to a listener that leaves before it comes.
    const bool batchPending = mRecovery && streaming && mBatchPacketsLeft > 0;
    const int ready = poll(first, count, batchPending ? 0 : pollTimeoutMillis(now));
    if (ready < 0) {
        if (errno == EINTR) return true;
        __android_log_print(ANDROID_LOG_WARN, kTag, "Poll received an error: errno=%d", errno);
        return false;
    }
    if (batchPending) mPollFds[0].revents |= POLLIN;
    AutoWakeLock wakeLock(kEventWakeLockName, false);
    // A command may empty the device after the poll saw it readable (passthrough
    // turned off and on, the device reopened); with recovery the device does
    // not block, so the read that follows finds nothing and returns.
    processAllCommands();
    if (ready == 0 && !batchPending) {
        // Nothing happened for a whole time-out: a good moment to look whether
        // the hub is still in the mode it was put in.
        now = android::uptimeMillis();
        if (mDeviceRetryAtMs < 0 || now < mDeviceRetryAtMs) checkHubState(now);
        mNextSuspectCheckMs = now + kIdleCheckMillis;
        return true;
    }
    if (mRecovery && mHubStateSuspect.load()) {
        // A write of ours failed while samples keep coming: no silence will
        // trigger the check, so it runs on its own clock.
        now = android::uptimeMillis();
        if (now >= mNextSuspectCheckMs) {
            checkHubState(now);
            mNextSuspectCheckMs = now + kIdleCheckMillis;
        }
    }
    for (int i = streaming ? 0 : 1; i < 4; ++i) {
        if (static_cast<int16_t>(mPollFds[i].revents) <= 0) continue;
        // A notified attribute reports priority data with the error; an error
        // alone means the file itself is broken (its driver or mount gone).
        if (mRecovery && (i == 1 || i == 2) && (mPollFds[i].revents & POLLPRI) == 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Interrupt file %s is broken (events 0x%x); no longer polled.",
                                i == 1 ? "don_doff" : "wink", mPollFds[i].revents);
            close(mPollFds[i].fd);
            mPollFds[i].fd = -1;
            mPollFds[i].revents = 0;
            continue;
        }
        switch (i) {
            case 0:
                handleProxDataInterrupt();
                break;
            case 1:
                handleDonDoffInterrupt();
                break;
            case 2:
                handleLowPowerWinkInterrupt();
                break;
            case 3:
                if ((mPollFds[3].revents & POLLIN) != 0) {
                    handleControlCommand(readControlSignal());
                } else {
                    __android_log_print(ANDROID_LOG_WARN, kTag, "Error on the control pipe?");
                }
                break;
        }
        mPollFds[i].revents = 0;
    }
    return true;
}

void VeltohubProximitySensor::handleProxDataInterrupt() {
    if (android_atomic_acquire_load(&mStreaming) == 0) {
        const long long before = gNotStreamingReadyCount.fetch_add(1);
        if (before % 1000 == 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Read would block since not in passthrough!  Not calling read!  (count: %lld)", before + 1);
        }
        return;
    }
    // A failed read passes the zero sample on; listeners with a positive
    // horizon skip it.
    ProxData sample(0, 0);
    const bool read = readOnePacket(&sample);
    if (!read && mReadWouldBlock) return;
    if (mRecovery && (!read || mFailedReads > 0)) noteDataRead(read, android::uptimeMillis());
    mHistoryBuffer.add(sample);
    dispatchProxData(sample);
    if (read) noteSampleClock(sample);
}

void VeltohubProximitySensor::handleDonDoffInterrupt() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Handle DON_DOFF interrupt!");
    const bool donned = readDonDoffStateFromFile_l(mPollFds[1].fd);
    mDonDoffState.store(donned);
    setDonDoffStateAndCallListenersIfNeeded(donned);
}

void VeltohubProximitySensor::handleLowPowerWinkInterrupt() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Handle LOW_POWER_WINK interrupt!");
    char buffer[64];
    memset(buffer, 0, sizeof(buffer));
    lseek(mPollFds[2].fd, 0, SEEK_SET);
    // Reading the attribute re-arms the kernel's notification on it.
    if (read(mPollFds[2].fd, buffer, sizeof(buffer) - 1) > 0 && buffer[0] != '0') callLowPowerWinkListeners();
}

void VeltohubProximitySensor::startStreamingData() {
    mWantStreaming = true;
    if (writeToSysfsFile(android::String8("passthru_enable"), android::String8("1"))) {
        android_atomic_acquire_store(1, &mStreaming);
        mStreamRestarted = true;
    } else if (mRecovery) {
        // No samples can come, so nothing may keep the device awake waiting
        // for them; the hub check writes it again and takes the lock back.
        release_wake_lock(kDataWakeLockName);
        mHubStateSuspect.store(true);
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Streaming could not be turned on; data wake lock released until the hub accepts it.");
    }
    mPollFds[0].events = POLLIN | POLLERR;
}

void VeltohubProximitySensor::stopStreamingData() {
    mWantStreaming = false;
    // The poll set changes before the hub is told, so no read follows a stop.
    android_atomic_acquire_store(0, &mStreaming);
    mPollFds[0].events = POLLERR;
    if (!writeToSysfsFile(android::String8("passthru_enable"), android::String8("0"))) mHubStateSuspect.store(true);
}

bool VeltohubProximitySensor::isStreamingData() const {
    return android_atomic_acquire_load(const_cast<volatile int32_t*>(&mStreaming)) != 0;
}

void VeltohubProximitySensor::executeFlushFifo() {
    closeDataFile();
    openDataFile();
    mHistoryBuffer.clear();
    // A fresh descriptor: any back-off from earlier failures is over.
    mFailedReads = 0;
    mDeviceRetryAtMs = -1;
}

void VeltohubProximitySensor::setPause(bool pause) {
    android::Mutex::Autolock listenerLock(mListenerLock);
    android::Mutex::Autolock lock(mSensorLock);
    mUserPaused.store(pause);
    if (pause) {
        queueCommand_l(new PauseCommand(this, true));
    } else {
        updateProxSensorStatus_l();
    }
}

TriStateBool VeltohubProximitySensor::isPaused() const { return Utils::toTriStateBool(mUserPaused.load()); }

void VeltohubProximitySensor::setPauseInternal(bool pause) {
    mWantPaused = pause;
    writeToSysfsFile(android::String8("pause"), android::String8(pause ? "1" : "0"));
    if (readPauseState() != Utils::toTriStateBool(pause)) {
        mHubStateSuspect.store(true);
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error setting pause state to %s", pause ? "true" : "false");
    }
}

TriStateBool VeltohubProximitySensor::readPauseState() const {
    android::String8 text;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "pause", &text)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to read the pause sysfs file!");
        return TRI_STATE_UNKNOWN;
    }
    return Utils::toTriStateBool(text.string()[0] == '1');
}

void VeltohubProximitySensor::incrementWakeLock_l() { acquire_wake_lock(PARTIAL_WAKE_LOCK, kDataWakeLockName); }

void VeltohubProximitySensor::decrementWakeLock_l() { release_wake_lock(kDataWakeLockName); }

}  // namespace velto
