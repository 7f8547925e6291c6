#include "hardware_legacy/power.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

#include "veltoutils/Paths.h"

namespace {

const char kWakeLockPath[] = "/sys/power/wake_lock";
const char kWakeUnlockPath[] = "/sys/power/wake_unlock";

// The two files stay open for the life of the process, as on the device; a
// file that is absent stays closed and every call on it fails quietly.
struct WakeLockFiles {
    int lockFd = -1;
    int unlockFd = -1;
};

WakeLockFiles& files() {
    static WakeLockFiles f;
    static std::once_flag once;
    std::call_once(once, [] {
        f.lockFd = open(velto::Paths::resolve(kWakeLockPath).string(), O_RDWR | O_CLOEXEC);
        f.unlockFd = open(velto::Paths::resolve(kWakeUnlockPath).string(), O_RDWR | O_CLOEXEC);
    });
    return f;
}

int writeName(int fd, const char* id) {
    if (fd < 0) return -ENODEV;
    if (id == nullptr) return -EINVAL;
    ssize_t len = static_cast<ssize_t>(strlen(id));
    ssize_t n = write(fd, id, len);
    if (n < 0) return -errno;
    return n == len ? 0 : -EIO;
}

}  // namespace

extern "C" int acquire_wake_lock(int lock, const char* id) {
    if (lock != PARTIAL_WAKE_LOCK && lock != FULL_WAKE_LOCK) return -EINVAL;
    return writeName(files().lockFd, id);
}

extern "C" int release_wake_lock(const char* id) { return writeName(files().unlockFd, id); }
