#include "veltoutils/AutoWakeLock.h"

#include <hardware_legacy/power.h>
#include <log/log.h>

namespace velto {

namespace {
const char kTag[] = "GazeService:AutoWakeLock";
}

AutoWakeLock::AutoWakeLock(const char* name, bool logChanges)
    : mName(name), mLogChanges(logChanges), mHeld(false) {
    if (mName == nullptr) return;
    mHeld = acquire_wake_lock(PARTIAL_WAKE_LOCK, mName) == 0;
    if (mLogChanges) __android_log_print(ANDROID_LOG_DEBUG, kTag, "Acquired wake lock %s: %d", mName, mHeld);
}

AutoWakeLock::~AutoWakeLock() {
    if (mName == nullptr) return;
    // Released whatever the acquire answered: a lock taken by another holder of
    // the same name must not outlive this scope either.
    release_wake_lock(mName);
    if (mLogChanges) __android_log_print(ANDROID_LOG_DEBUG, kTag, "Released wake lock %s", mName);
}

}  // namespace velto
