#include "tools/common/InstalledData.h"

#include <limits.h>
#include <unistd.h>

namespace velto {
namespace tools {

std::string executableDir() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return ".";
    buf[n] = 0;
    const std::string path(buf);
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string findInstalledData(const std::string& relative, const std::string& fallback) {
    const std::string installed = executableDir() + "/../share/veltogaze/" + relative;
    return access(installed.c_str(), R_OK) == 0 ? installed : fallback;
}

}  // namespace tools
}  // namespace velto
