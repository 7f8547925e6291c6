#include "tests/harness/TestRoot.h"

#include <errno.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace velto {
namespace test {

const std::string& testRoot() {
    static const std::string root = [] {
        const char* env = getenv("VELTOGAZE_ROOT");
        return std::string(env != nullptr ? env : "");
    }();
    return root;
}

std::string underRoot(const std::string& devicePath) { return testRoot() + devicePath; }

bool writeFile(const std::string& path, const std::string& contents) {
    size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !makeDirs(path.substr(0, slash))) return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
    return static_cast<bool>(out);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool makeDirs(const std::string& dir) {
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos == dir.size() || dir[pos] == '/') {
            std::string part = dir.substr(0, pos);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

static std::vector<std::string>& madeDirs() {
    static std::vector<std::string> dirs;
    return dirs;
}

std::string makeTempDir(const char* tag) {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr ? tmp : "/tmp") + "/velto-" + tag + "-XXXXXX";
    if (mkdtemp(&templ[0]) == nullptr) return std::string();
    madeDirs().push_back(templ);
    return templ;
}

static int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

void removeTempDirs() {
    for (const std::string& dir : madeDirs()) nftw(dir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    madeDirs().clear();
}

}  // namespace test
}  // namespace velto
