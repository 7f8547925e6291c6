#include "veltoutils/AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Makes the rename itself durable. Some file systems cannot sync a directory;
// the rename has happened all the same, so that is not a failure.
void syncDirectoryOf(const android::String8& path) {
    android::String8 dir = path.getPathDir();
    if (dir.length() == 0) dir.setTo(".");
    int fd = open(dir.string(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

}  // namespace

AtomicFile::AtomicFile(const char* path)
    : mPath(Paths::resolve(path != nullptr ? path : "")), mFailedStep(NONE) {}

AtomicFile::~AtomicFile() {
    const int savedErrno = errno;
    discard();
    errno = savedErrno;
}

bool AtomicFile::stage(const android::String8& contents) {
    discard();
    mFailedStep = CREATE;
    if (mPath.length() == 0) {
        errno = EINVAL;
        return false;
    }
    if (!Utils::ensurePathExists(mPath.string(), false)) return false;
    // A unique name, so that two savers of the same file never share one.
    android::String8 temp(mPath);
    temp.append(".tmp-XXXXXX");
    std::string name(temp.string());
    int fd = mkostemp(&name[0], O_CLOEXEC);
    if (fd < 0) return false;
    mFailedStep = WRITE;
    bool ok = fchmod(fd, 0644) == 0 && writeAll(fd, contents.string(), contents.length()) && fsync(fd) == 0;
    int err = errno;
    if (close(fd) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (!ok) {
        unlink(name.c_str());
        errno = err;
        return false;
    }
    mTempPath.setTo(name.c_str());
    mFailedStep = NONE;
    return true;
}

bool AtomicFile::commit() {
    mFailedStep = RENAME;
    if (mTempPath.length() == 0) {
        errno = EINVAL;
        return false;
    }
    if (rename(mTempPath.string(), mPath.string()) != 0) {
        const int err = errno;
        discard();
        errno = err;
        return false;
    }
    mTempPath.setTo("");
    mFailedStep = NONE;
    syncDirectoryOf(mPath);
    return true;
}

void AtomicFile::discard() {
    if (mTempPath.length() == 0) return;
    unlink(mTempPath.string());
    mTempPath.setTo("");
}

bool AtomicFile::write(const char* path, const android::String8& contents) {
    AtomicFile file(path);
    return file.stage(contents) && file.commit();
}

}  // namespace velto
