#ifndef VELTO_TOOLS_INSTALLED_DATA_H
#define VELTO_TOOLS_INSTALLED_DATA_H

#include <string>

namespace velto {
namespace tools {

// The directory of the running program ("." when it cannot be told).
std::string executableDir();

// Where a program finds a data file or directory it ships with: `relative`
// below <its directory>/../share/veltogaze when it exists there (an installed
// tree), else `fallback` (the copy in the source or build tree).
std::string findInstalledData(const std::string& relative, const std::string& fallback);

}  // namespace tools
}  // namespace velto

#endif  // VELTO_TOOLS_INSTALLED_DATA_H
