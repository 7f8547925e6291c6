// Host build of the platform's wake-lock interface. Same names, values and
// semantics as the device library: a lock is taken by writing its name to
// /sys/power/wake_lock and released by writing it to /sys/power/wake_unlock.
#ifndef HARDWARE_LEGACY_POWER_H
#define HARDWARE_LEGACY_POWER_H

#ifdef __cplusplus
extern "C" {
#endif

enum {
    PARTIAL_WAKE_LOCK = 1,  // the CPU stays on
    FULL_WAKE_LOCK = 2,     // the screen stays on too (same as partial on this kernel interface)
};

// Returns 0 on success, a negative errno value when the lock could not be taken
// (for example on a kernel without wake locks: the files are then absent).
int acquire_wake_lock(int lock, const char* id);
int release_wake_lock(const char* id);

#ifdef __cplusplus
}
#endif

#endif  // HARDWARE_LEGACY_POWER_H
