#ifndef VELTO_DUMP_LOCK_H
#define VELTO_DUMP_LOCK_H

#include <log/log.h>
#include <unistd.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

namespace velto {

// The lock a dump takes: it waits a short while for the object's lock, so a
// dump taken while samples stream sees a consistent state, but never blocks on
// a lock that is held for long (a stuck caller): it then warns and goes on
// without it, and the text may be inconsistent.
class DumpLock {
public:
    static const nsecs_t kTimeoutNs = 200000000;  // 200 ms

    DumpLock(android::Mutex& lock, const char* logTag) : mLock(lock) {
        // Polled: the platform's timed lock exists on devices only.
        const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + kTimeoutNs;
        while (!(mLocked = mLock.tryLock() == android::NO_ERROR) && systemTime(SYSTEM_TIME_MONOTONIC) < deadline) {
            usleep(1000);
        }
        if (!mLocked) {
            __android_log_print(ANDROID_LOG_WARN, logTag,
                                "WARNING: dump() failed to acquire lock -- output may be an inconsistent view.");
        }
    }
    ~DumpLock() {
        if (mLocked) mLock.unlock();
    }
    DumpLock(const DumpLock&) = delete;
    DumpLock& operator=(const DumpLock&) = delete;

    bool isLocked() const { return mLocked; }

private:
    android::Mutex& mLock;
    bool mLocked;
};

}  // namespace velto

#endif  // VELTO_DUMP_LOCK_H
