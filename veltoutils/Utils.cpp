#include "veltoutils/Utils.h"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#ifdef __ANDROID__
#include <cutils/properties.h>
#endif

#include "veltoutils/Paths.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:Utils";

// Largest file that readFileContents accepts: attribute files and small
// parameter files only.
const size_t kMaxFileSize = 1 << 20;

}  // namespace

android::String8 Utils::getVeltoSerialNumber() {
#ifdef __ANDROID__
    char value[PROPERTY_VALUE_MAX] = {0};
    property_get("ro.serialno", value, "");
    return android::String8(value);
#else
    // Read once, like the property that it stands in for.
    static const android::String8 serial = [] {
        const char* env = getenv("VELTOGAZE_SERIAL");
        return android::String8(env != nullptr ? env : "");
    }();
    return serial;
#endif
}

android::String8 Utils::getDeviceID() {
    android::String8 serial = getVeltoSerialNumber();
    if (serial.length() == 0) return android::String8("unknown");
    std::string id(serial.string());
    for (char& c : id) {
        bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                    c == '_';
        if (!safe) c = '_';
    }
    return android::String8(id.c_str());
}

int64_t Utils::getEpochTimeNanos() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

android::String8 Utils::getEpochTimeHumanReadableString() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm local;
    time_t secs = tv.tv_sec;
    localtime_r(&secs, &local);
    char date[64];
    char zone[16];
    strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
    strftime(zone, sizeof(zone), "%z", &local);
    return android::String8::format("%s.%03ld %s", date, static_cast<long>(tv.tv_usec / 1000), zone);
}

const char* Utils::triStateBoolToString(TriStateBool value) {
    switch (value) {
        case TRI_STATE_FALSE:
            return "false";
        case TRI_STATE_TRUE:
            return "true";
        default:
            return "unknown";
    }
}

bool Utils::ensurePathExists(const char* path, bool isDirectory) {
    if (path == nullptr || path[0] == '\0') {
        errno = EINVAL;
        return false;
    }
    std::string dir(Paths::resolve(path).string());
    if (!isDirectory) {
        size_t slash = dir.rfind('/');
        if (slash == std::string::npos) return true;  // a bare file name: the current directory
        dir.resize(slash);
    }
    if (dir.empty()) return true;  // the file system root
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos != dir.size() && dir[pos] != '/') continue;
        std::string part = dir.substr(0, pos);
        if (mkdir(part.c_str(), 0775) != 0 && errno != EEXIST) return false;
    }
    struct stat st;
    if (stat(dir.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

bool Utils::doesFileExist(const char* path) {
    if (path == nullptr) return false;
    struct stat st;
    return stat(Paths::resolve(path).string(), &st) == 0;
}

int Utils::readFileContents(const char* path, bool logErrors, android::String8* out) {
    if (out != nullptr) out->setTo("");
    if (path == nullptr) {
        errno = EINVAL;
        return -EINVAL;
    }
    android::String8 resolved = Paths::resolve(path);
    int fd = open(resolved.string(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        int err = errno;
        if (logErrors) __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot open %s: %s", resolved.string(), strerror(err));
        errno = err;
        return -err;
    }
    std::string text;
    char buffer[4096];
    int result = 0;
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0) {
            if (errno == EINTR) continue;
            result = -errno;
            break;
        }
        if (n == 0) break;
        text.append(buffer, static_cast<size_t>(n));
        if (text.size() > kMaxFileSize) {
            result = -EFBIG;
            break;
        }
    }
    close(fd);
    if (result != 0) {
        if (logErrors) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot read %s: %s", resolved.string(), strerror(-result));
        }
        errno = -result;
        return result;
    }
    if (out != nullptr) out->setTo(text.data(), text.size());
    return 0;
}

int Utils::writeStringToFile(const char* path, const android::String8& value, bool create) {
    if (path == nullptr) {
        errno = EINVAL;
        return -EINVAL;
    }
    android::String8 resolved = Paths::resolve(path);
    // Truncating, as a shell redirection does: an attribute ignores it, a plain
    // file is left holding exactly the value.
    int flags = O_WRONLY | O_TRUNC | O_CLOEXEC | (create ? O_CREAT : 0);
    int fd = open(resolved.string(), flags, 0664);
    if (fd < 0) return -errno;
    ssize_t n;
    do {
        n = write(fd, value.string(), value.length());
    } while (n < 0 && errno == EINTR);
    int err = n < 0 ? errno : (static_cast<size_t>(n) != value.length() ? EIO : 0);
    if (close(fd) != 0 && err == 0) err = errno;
    errno = err;
    return -err;
}

android::String8 Utils::stripTrailingNewlines(const android::String8& text) {
    size_t len = text.length();
    while (len > 0 && text.string()[len - 1] == '\n') --len;
    return android::String8(text.string(), len);
}

}  // namespace velto
