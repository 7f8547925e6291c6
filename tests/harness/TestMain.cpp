// Test main shared by all unit tests: gives the process a private root for
// every device path (so no test touches /data or /sys of the machine) and
// captures the platform log in memory.
#include <ftw.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

}  // namespace

int main(int argc, char** argv) {
    std::string madeRoot;
    if (getenv("VELTOGAZE_ROOT") == nullptr) {
        std::string root = velto::test::makeTempDir("root");
        if (root.empty()) {
            fprintf(stderr, "cannot create a temporary root\n");
            return 1;
        }
        setenv("VELTOGAZE_ROOT", root.c_str(), 1);
        madeRoot = root;
    }
    velto::test::LogCapture::install();
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    // A root made here is removed again unless asked to keep it for a post-mortem.
    if (!madeRoot.empty() && getenv("VELTO_KEEP_ROOT") == nullptr) {
        nftw(madeRoot.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
    return result;
}
