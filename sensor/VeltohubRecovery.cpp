// VeltohubProximitySensor: finding the way back after hub faults. All of it
// runs on the event thread, after the behaviour at the moment of the fault
// (log lines, zero samples, return values) has taken its course.
#include <cutils/atomic.h>
#include <hardware_legacy/power.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <utils/SystemClock.h>

#include "sensor/ProxDataDiscontinuityListener.h"
#include "sensor/VeltohubProximitySensor.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:Veltohub";

// Reads that may fail back to back before the device is read with back-off:
// a short burst of errors is read through at once (each failed read costs a
// round trip to the driver, and logs at most once a second).
const int kReadsBeforeBackoff = 200;
// A descriptor that has failed this long is reopened at the next retry.
const int64_t kReopenAfterMs = 1000;

// The settings the library writes that a hub reset puts back to defaults, in
// the order they are restored (thresholds before the detectors use them).
const char* const kRestoredSettings[] = {"don_threshold", "doff_threshold", "don_max_threshold", "detector_gain",
                                         "wink_min",      "wink_max",       "activity_threshold"};
const size_t kNumRestoredSettings = sizeof(kRestoredSettings) / sizeof(kRestoredSettings[0]);

// Retry interval while the device keeps failing: quick at first, so a short
// burst of errors costs little, then sparing.
int64_t retryDelayMs(int64_t failingForMs) {
    if (failingForMs < 2000) return 5;
    if (failingForMs < 10000) return 100;
    return 1000;
}

void appendSetting(android::String8* out, const char* node, const char* value, bool ok) {
    if (!out->isEmpty()) out->append(", ");
    out->appendFormat("%s=%s %s", node, value, ok ? "written" : "failed");
}

}  // namespace

bool VeltohubProximitySensor::writeHubQuietly(const char* node, const char* value) const {
    android::String8 path(mSysfsDir);
    path.append(node);
    return Utils::writeStringToFile(path.string(), android::String8(value)) == 0;
}

bool VeltohubProximitySensor::readHubQuietly(const char* node, android::String8* out) const {
    android::String8 path(mSysfsDir);
    path.append(node);
    android::String8 text;
    if (Utils::readFileContents(path.string(), false, &text) != 0) return false;
    *out = Utils::stripTrailingNewlines(text);
    return !out->isEmpty();
}

void VeltohubProximitySensor::rememberHubSetting(const android::String8& node, const android::String8& value) {
    // Setters pass either the attribute's name or its full path.
    const char* name = strrchr(node.string(), '/');
    name = name == nullptr ? node.string() : name + 1;
    for (size_t i = 0; i < kNumRestoredSettings; ++i) {
        if (strcmp(name, kRestoredSettings[i]) == 0) {
            android::Mutex::Autolock lock(mHubSettingsLock);
            mHubSettings[i] = value;
            return;
        }
    }
}

void VeltohubProximitySensor::noteDataRead(bool ok, int64_t nowMs) {
    if (ok) {
        // A single failure (a short read) has said all there is to say.
        if (mFailedReads > 1) {
            __android_log_print(ANDROID_LOG_INFO, kTag, "The data device reads again after %d failed reads in %lld ms.",
                                mFailedReads, static_cast<long long>(nowMs - mFailingSinceMs));
        }
        mFailedReads = 0;
        mDeviceRetryAtMs = -1;
        mReadFailureLog.clear();
        return;
    }
    if (mFailedReads++ == 0) {
        mFailingSinceMs = nowMs;
        mLastReopenMs = nowMs;
    }
    if (mFailedReads < kReadsBeforeBackoff) return;
    if (mFailedReads == kReadsBeforeBackoff) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "The data device failed %d reads in a row; reading it again with back-off.", mFailedReads);
    }
    // Out of the poll set until the retry: a device that fails every read
    // would otherwise keep this thread spinning.
    mPollFds[0].fd = -1;
    mPollFds[0].revents = 0;
    mDeviceRetryAtMs = nowMs + retryDelayMs(nowMs - mFailingSinceMs);
}

void VeltohubProximitySensor::retryDataDevice(int64_t nowMs) {
    mDeviceRetryAtMs = -1;
    if (nowMs - mLastReopenMs >= kReopenAfterMs || mDataFd < 0) {
        // The descriptor itself may be what is broken.
        mLastReopenMs = nowMs;
        closeDataFile();
        mBatchPacketsLeft = 0;
        if (!openDataFile()) {
            mDeviceRetryAtMs = nowMs + kReopenAfterMs;
            return;
        }
    }
    mPollFds[0].fd = mDataFd;
    mPollFds[0].events = android_atomic_acquire_load(&mStreaming) != 0 ? (POLLIN | POLLERR) : POLLERR;
    mPollFds[0].revents = 0;
}

void VeltohubProximitySensor::noteSampleClock(const ProxData& sample) {
    const int64_t ts = sample.mTimestampNanos;
    mLastHubClockNs = ts;
    const bool restarted = mStreamRestarted;
    mStreamRestarted = false;
    switch (mClockMonitor.add(ts)) {
        case SampleClockMonitor::BACKWARD:
            if (mRecovery) {
                restartListenersOnNewClock(sample, mClockMonitor.previous());
            } else if (mStreamLog.allow(android::uptimeMillis())) {
                // Listeners keep their horizons on the old clock and skip
                // the new one's samples until it passes them.
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Hub clock went back from %lld ns to %lld ns (hub reset?); hub recovery is off.",
                                    static_cast<long long>(mClockMonitor.previous()), static_cast<long long>(ts));
            }
            break;
        case SampleClockMonitor::FORWARD:
            if (!restarted && mStreamLog.allow(android::uptimeMillis())) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Samples missing: time stamps jumped %lld ms forward (packets lost or the hub clock "
                                    "moved on).",
                                    static_cast<long long>((ts - mClockMonitor.previous()) / 1000000));
            }
            break;
        case SampleClockMonitor::REPEATED:
            if (mStreamLog.allow(android::uptimeMillis())) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Sample at %lld ns repeats or precedes the one at %lld ns; delivered as it came.",
                                    static_cast<long long>(ts), static_cast<long long>(mClockMonitor.latest()));
            }
            break;
        case SampleClockMonitor::STEADY:
            break;
    }
}

void VeltohubProximitySensor::restartListenersOnNewClock(const ProxData& sample, int64_t fromNs) {
    const int64_t toNs = sample.mTimestampNanos;
    // The history holds samples of the old clock: a replay would mix both.
    mHistoryBuffer.clear();
    mHistoryBuffer.add(sample);
    int rebased = 0;
    {
        android::Mutex::Autolock listenerLock(mListenerLock);
        for (size_t i = 0; i < mProxDataListeners.size(); ++i) {
            if (mProxDataListeners[i].deviceHorizonNs > toNs) {
                mProxDataListeners.editItemAt(i).deviceHorizonNs = toNs;
                ++rebased;
            }
        }
        mProxDataListenersChanged = true;
        syncProxDataListenersIterator_l();
    }
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Hub clock went back from %lld ns to %lld ns (hub reset?): history dropped, %d of %d data "
                        "listeners restarted on the new clock.",
                        static_cast<long long>(fromNs), static_cast<long long>(toNs), rebased,
                        static_cast<int>(mProxDataListenersSnapshot.size()));
    // Each listener resets its own time state; called without any lock.
    for (size_t i = 0; i < mProxDataListenersSnapshot.size(); ++i) {
        ProxDataDiscontinuityListener* listener =
                dynamic_cast<ProxDataDiscontinuityListener*>(mProxDataListenersSnapshot[i].listener);
        if (listener != nullptr) listener->onProxDataDiscontinuity(fromNs, toNs);
    }
}

void VeltohubProximitySensor::checkHubState(int64_t nowMs) {
    android::String8 text;
    // The clock may read below zero: a clock set back can pass its start.
    const bool haveNow = readHubQuietly("current_timestamp", &text);
    const int64_t hubNowNs = haveNow ? strtoll(text.string(), nullptr, 10) : 0;
    const int64_t lastNs = mLastHubClockNs;
    const bool clockBack = haveNow && lastNs != kUnknownClock && hubNowNs < lastNs - SampleClockMonitor::kBackwardStepNs;
    if (haveNow) mLastHubClockNs = hubNowNs;
    int pause = -1, passthru = -1;  // as read; -1 when unreadable
    if (readHubQuietly("pause", &text)) pause = text.string()[0] == '1';
    if (readHubQuietly("passthru_enable", &text)) passthru = text.string()[0] == '1';
    const bool pauseLost = pause >= 0 && pause != mWantPaused;
    const bool passthruLost = passthru >= 0 && passthru != mWantStreaming;
    // A hub that forgot both its pause and its streaming has been reset, even
    // when its new clock has already run past the last sample.
    const bool reset = clockBack || (pauseLost && passthruLost);
    // Only what a reset or a failed write of ours put wrong is put right: a
    // single setting changed from outside the service is left as it is.
    if (!reset && !mHubStateSuspect.load()) return;

    android::String8 rewritten;
    if (reset) {
        // A reset puts the thresholds back to the hub's defaults.
        for (size_t i = 0; i < kNumRestoredSettings; ++i) {
            android::String8 wanted;
            {
                android::Mutex::Autolock lock(mHubSettingsLock);
                wanted = mHubSettings[i];
            }
            if (wanted.isEmpty() || (readHubQuietly(kRestoredSettings[i], &text) && text == wanted)) continue;
            appendSetting(&rewritten, kRestoredSettings[i], wanted.string(),
                          writeHubQuietly(kRestoredSettings[i], wanted.string()));
        }
    }
    {
        // Under the listener mutex: clients enable the interrupts under it.
        android::Mutex::Autolock listenerLock(mListenerLock);
        const bool wantDonDoff = !mDonDoffListeners.isEmpty();
        const bool wantWink = !mLowPowerWinkListeners.isEmpty();
        const char* enables[] = {"don_doff_enable", "wink_enable", "wink_flag_enable"};
        const bool wanted[] = {wantDonDoff, wantWink, wantWink};
        for (int i = 0; i < 3; ++i) {
            if (!readHubQuietly(enables[i], &text) || (text.string()[0] == '1') == wanted[i]) continue;
            appendSetting(&rewritten, enables[i], wanted[i] ? "1" : "0", writeHubQuietly(enables[i], wanted[i] ? "1" : "0"));
        }
    }
    if (pauseLost) {
        appendSetting(&rewritten, "pause", mWantPaused ? "1" : "0", writeHubQuietly("pause", mWantPaused ? "1" : "0"));
    }
    bool hubStreams = passthru == 1;
    if (passthruLost) {
        const bool ok = writeHubQuietly("passthru_enable", mWantStreaming ? "1" : "0");
        appendSetting(&rewritten, "passthru_enable", mWantStreaming ? "1" : "0", ok);
        if (ok) hubStreams = mWantStreaming;
    }
    if (hubStreams && mWantStreaming && android_atomic_acquire_load(&mStreaming) == 0) {
        // Streaming failed to start earlier and the hub now streams.
        android_atomic_acquire_store(1, &mStreaming);
        mStreamRestarted = true;
        mPollFds[0].events = POLLIN | POLLERR;
        acquire_wake_lock(PARTIAL_WAKE_LOCK, kDataWakeLockName);
        if (!rewritten.isEmpty()) rewritten.append(", ");
        rewritten.append("streaming resumed");
    }
    // Found as wanted, or set right now: no more checks needed beyond those
    // made while listeners are registered. A mode that could not be read is
    // not known to be right, so a failed write stays suspect until it is.
    if (rewritten.find(" failed") < 0 && pause >= 0 && passthru >= 0) mHubStateSuspect.store(false);
    if (rewritten.isEmpty() || !mHubStateLog.allow(nowMs)) return;
    if (reset) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Hub lost its settings (hub reset?; clock at %lld ns, was %lld ns): %s.",
                            static_cast<long long>(hubNowNs), static_cast<long long>(lastNs), rewritten.string());
    } else {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Hub state differed from the service's: %s.", rewritten.string());
    }
}

}  // namespace velto
