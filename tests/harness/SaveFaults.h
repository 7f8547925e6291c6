#ifndef VELTO_SAVE_FAULTS_H
#define VELTO_SAVE_FAULTS_H

// Test support: real file-system faults for saves, without a special mount.
#include <dirent.h>
#include <signal.h>
#include <sys/fsuid.h>
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
// modes, so as root this thread's file-system user id is dropped as well,
// which also drops its file-system capabilities until it is restored.
class ScopedUnwritableDir {
public:
    explicit ScopedUnwritableDir(const std::string& dir) : mDir(dir) {
        struct stat st;
        mOldMode = stat(dir.c_str(), &st) == 0 ? st.st_mode & 07777 : 0755;
        chmod(dir.c_str(), 0555);
        mDroppedRoot = geteuid() == 0;
        if (mDroppedRoot) setfsuid(65534);
    }
    ~ScopedUnwritableDir() {
        if (mDroppedRoot) setfsuid(0);
        chmod(mDir.c_str(), mOldMode);
    }

private:
    std::string mDir;
    mode_t mOldMode;
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
