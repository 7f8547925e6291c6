#include "tools/hubsim/SimRoot.h"

#include <dirent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace velto {
namespace hubsim {

namespace {

const char* const kLinks[][2] = {
        {SimRoot::kAttributeDir, "/4-0035"},
        {"/dev/veltohub", "/veltohub"},
        {"/sys/power/wake_lock", "/power/wake_lock"},
        {"/sys/power/wake_unlock", "/power/wake_unlock"},
};

bool makeDirs(const std::string& path) {
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        partial = path.substr(0, pos);
        if (partial.empty()) continue;
        if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool copyFile(const std::string& from, const std::string& to) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    if (!in || !out) return false;
    out << in.rdbuf();
    return static_cast<bool>(out);
}

// Copies the regular files of `from` (and its subdirectories) into `to`.
bool copyTree(const std::string& from, const std::string& to) {
    DIR* d = opendir(from.c_str());
    if (d == nullptr) return errno == ENOENT;
    bool ok = true;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        // Build files of the directory are not detector files.
        if (name[0] == '.' || name == "CMakeLists.txt") continue;
        const std::string src = from + "/" + name;
        const std::string dst = to + "/" + name;
        struct stat st;
        if (stat(src.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            ok = ok && (mkdir(dst.c_str(), 0755) == 0 || errno == EEXIST) && copyTree(src, dst);
        } else if (S_ISREG(st.st_mode)) {
            ok = ok && copyFile(src, dst);
        }
    }
    closedir(d);
    return ok;
}

// Undoes the octal escapes of /proc/self/mountinfo ("\040" for a blank).
std::string unescape(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 3 < s.size()) {
            out.push_back(static_cast<char>(std::strtol(s.substr(i + 1, 3).c_str(), nullptr, 8)));
            i += 3;
        } else {
            out.push_back(s[i]);
        }
    }
    return out;
}

}  // namespace

namespace {

struct MountEntry {
    std::string mountPoint;
    std::string type;
};

std::vector<MountEntry> mounts() {
    std::vector<MountEntry> out;
    std::ifstream info("/proc/self/mountinfo");
    std::string line;
    while (std::getline(info, line)) {
        // Fields: id, parent, major:minor, root, mount point, options...,
        // then " - " and the file system type.
        size_t pos = 0;
        for (int field = 0; field < 4 && pos != std::string::npos; ++field)
            pos = line.find(' ', pos + 1);
        if (pos == std::string::npos) continue;
        const size_t end = line.find(' ', pos + 1);
        const size_t dash = line.find(" - ", end);
        MountEntry e;
        e.mountPoint = unescape(line.substr(pos + 1, end - pos - 1));
        if (dash != std::string::npos) {
            const size_t typeEnd = line.find(' ', dash + 3);
            e.type = line.substr(dash + 3, typeEnd == std::string::npos ? std::string::npos
                                                                        : typeEnd - dash - 3);
        }
        out.push_back(std::move(e));
    }
    return out;
}

}  // namespace

bool SimRoot::isMountPoint(const std::string& path) {
    for (const MountEntry& m : mounts())
        if (m.mountPoint == path) return true;
    return false;
}

std::vector<std::string> SimRoot::sweepDeadMounts() {
    std::vector<std::string> swept;
    for (const MountEntry& m : mounts()) {
        struct stat st;
        if (m.type != kFileSystemType || stat(m.mountPoint.c_str(), &st) == 0 || errno != ENOTCONN)
            continue;
        if (umount2(m.mountPoint.c_str(), MNT_DETACH) == 0) swept.push_back(m.mountPoint);
    }
    return swept;
}

namespace {

// A root is free when it is empty, or holds only the real directories that
// populate() made (and the files the library wrote there): depopulate()
// removed the links and the mount point.
bool isFreeRoot(const std::string& root, std::string* error) {
    DIR* d = opendir(root.c_str());
    if (d == nullptr) {
        *error = "the root " + root + " is not a directory";
        return false;
    }
    std::string stranger;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        struct stat st;
        const bool isDir = lstat((root + "/" + name).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
        if (!isDir || (name != "data" && name != "system" && name != "sys" && name != "dev")) stranger = name;
    }
    closedir(d);
    if (stranger.empty()) {
        for (const auto& link : kLinks) {
            struct stat st;
            if (lstat((root + link[0]).c_str(), &st) == 0) stranger = link[0] + 1;
        }
    }
    if (!stranger.empty()) {
        *error = "the root " + root + " is in use or not a simulator's root (it holds " + stranger +
                 "); give an empty directory";
        return false;
    }
    return true;
}

}  // namespace

bool SimRoot::isUsable(const std::string& root, std::string* error) {
    if (root.empty()) {
        *error = "the root must not be empty";
        return false;
    }
    struct stat st;
    if (stat(root.c_str(), &st) != 0) return true;  // claim() creates it
    char real[PATH_MAX];
    if (realpath(root.c_str(), real) == nullptr) {
        *error = "cannot resolve the root " + root + ": " + strerror(errno);
        return false;
    }
    if (isMountPoint(real)) {
        *error = std::string("the root ") + real + " is already mounted";
        return false;
    }
    return isFreeRoot(real, error);
}

bool SimRoot::claim(const std::string& root, std::string* absolute, std::string* error) {
    if (root.empty()) {
        *error = "the root must not be empty";
        return false;
    }
    if (!makeDirs(root)) {
        *error = "cannot create the root " + root + ": " + strerror(errno);
        return false;
    }
    char real[PATH_MAX];
    if (realpath(root.c_str(), real) == nullptr) {
        *error = "cannot resolve the root " + root + ": " + strerror(errno);
        return false;
    }
    *absolute = real;
    if (isMountPoint(*absolute)) {
        *error = "the root " + *absolute + " is already mounted";
        return false;
    }
    if (!isFreeRoot(*absolute, error)) return false;
    // mkdir is the lock: of two simulators given the same root, one fails here.
    if (mkdir(mountPoint(*absolute).c_str(), 0755) != 0) {
        *error = "cannot create " + mountPoint(*absolute) + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool SimRoot::populate(const std::string& root, const std::string& gazeEtc,
                       const std::string& firmware, std::string* error) {
    for (const char* dir : {"/data/system/gaze", "/system/etc/gaze", "/system/vendor/firmware"}) {
        if (!makeDirs(root + dir)) {
            *error = std::string("cannot create ") + root + dir + ": " + strerror(errno);
            return false;
        }
    }
    if (!copyTree(gazeEtc, root + "/system/etc/gaze")) {
        *error = "cannot copy the detector files from " + gazeEtc;
        return false;
    }
    if (!copyFile(firmware, root + "/system/vendor/firmware/veltohub.s19")) {
        *error = "cannot copy the firmware image " + firmware;
        return false;
    }
    const std::string mount = mountPoint(root);
    for (const auto& link : kLinks) {
        const std::string path = root + link[0];
        if (!makeDirs(parentOf(path)) || symlink((mount + link[1]).c_str(), path.c_str()) != 0) {
            *error = "cannot link " + path + ": " + strerror(errno);
            return false;
        }
    }
    return true;
}

void SimRoot::depopulate(const std::string& root) {
    for (const auto& link : kLinks) unlink((root + link[0]).c_str());
    rmdir(mountPoint(root).c_str());
}

}  // namespace hubsim
}  // namespace velto
