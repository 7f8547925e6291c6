#ifndef VELTO_TEST_ROOT_H
#define VELTO_TEST_ROOT_H

#include <string>

namespace velto {
namespace test {

// The directory that stands in for "/" in this test process (VELTOGAZE_ROOT).
// The test main creates a fresh one unless the environment already names one.
const std::string& testRoot();

// testRoot() joined with an absolute device path.
std::string underRoot(const std::string& devicePath);

// Small file helpers for tests.
bool writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
bool makeDirs(const std::string& dir);
// A fresh empty directory below the system temp directory; removeTempDirs()
// removes every one made so far with all it holds.
std::string makeTempDir(const char* tag);
void removeTempDirs();

}  // namespace test
}  // namespace velto

#endif  // VELTO_TEST_ROOT_H
