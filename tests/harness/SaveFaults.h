#ifndef VELTO_SAVE_FAULTS_H
#define VELTO_SAVE_FAULTS_H

// Test support: real file-system faults for saves, without a special mount.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/fsuid.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace velto {
namespace test {

// A disk that fills up after `bytes` more bytes of any file: the kernel's
// file-size limit makes a write past it fail with EFBIG, as ENOSPC would.
class ScopedFullDisk {
public:
    explicit ScopedFullDisk(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &mOld);
        mOldHandler = signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = mOld;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~ScopedFullDisk() {
        setrlimit(RLIMIT_FSIZE, &mOld);
        signal(SIGXFSZ, mOldHandler);
    }

private:
    struct rlimit mOld;
    sighandler_t mOldHandler;
};

// A directory in which nothing can be created or renamed. Root ignores file
// modes, so as root the directory is also made immutable (ext4 and most disk
// file systems); where that is not supported, this thread's file-system user
// id is dropped instead, which also drops its file-system capabilities until
// it is restored (the test root must then be searchable by others).
class ScopedUnwritableDir {
public:
    explicit ScopedUnwritableDir(const std::string& dir) : mDir(dir), mImmutable(false), mDroppedRoot(false) {
        struct stat st;
        mOldMode = stat(dir.c_str(), &st) == 0 ? st.st_mode & 07777 : 0755;
        chmod(dir.c_str(), 0555);
        if (geteuid() != 0) return;
        mImmutable = setImmutable(true);
        if (!mImmutable) {
            setfsuid(65534);
            mDroppedRoot = true;
        }
    }
    ~ScopedUnwritableDir() {
        if (mDroppedRoot) setfsuid(0);
        if (mImmutable) setImmutable(false);
        chmod(mDir.c_str(), mOldMode);
    }

private:
    bool setImmutable(bool on) {
        const int fd = open(mDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return false;
        int flags = 0;
        bool ok = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
        if (ok) {
            flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
            ok = ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        }
        close(fd);
        return ok;
    }

    std::string mDir;
    mode_t mOldMode;
    bool mImmutable;
    bool mDroppedRoot;
};

// The names in `dir`, for checking that a failed save left no stray file.
inline std::vector<std::string> listDir(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return names;
    while (struct dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(d);
    return names;
}

}  // namespace test
}  // namespace velto

#endif  // VELTO_SAVE_FAULTS_H
