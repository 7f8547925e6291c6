#ifndef VELTO_AUTO_WAKE_LOCK_H
#define VELTO_AUTO_WAKE_LOCK_H

namespace velto {

// Holds a named partial wake lock from construction to destruction, so the
// device cannot suspend while a scope runs. The platform's lock is named, not
// counted: nested holders of the same name release it when the first ends.
class AutoWakeLock {
public:
    // `logChanges` logs each acquire and release at debug priority.
    AutoWakeLock(const char* name, bool logChanges);
    ~AutoWakeLock();

    AutoWakeLock(const AutoWakeLock&) = delete;
    AutoWakeLock& operator=(const AutoWakeLock&) = delete;

    // Whether the platform accepted the lock (false on a kernel without wake locks).
    bool isHeld() const { return mHeld; }

private:
    const char* mName;
    bool mLogChanges;
    bool mHeld;
};

}  // namespace velto

#endif  // VELTO_AUTO_WAKE_LOCK_H
