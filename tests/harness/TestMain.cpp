// Test main shared by all unit tests: gives the process a private root for
// every device path (so no test touches /data or /sys of the machine) and
// captures the platform log in memory.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

int main(int argc, char** argv) {
    if (getenv("VELTOGAZE_ROOT") == nullptr) {
        std::string root = velto::test::makeTempDir("root");
        if (root.empty()) {
            fprintf(stderr, "cannot create a temporary root\n");
            return 1;
        }
        setenv("VELTOGAZE_ROOT", root.c_str(), 1);
    }
    // Line by line, so that a test killed at its time limit still shows what
    // it had printed.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    velto::test::LogCapture::install();
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    // A root and directories made by the tests are removed again unless asked
    // to keep them for a post-mortem.
    if (getenv("VELTO_KEEP_ROOT") == nullptr) velto::test::removeTempDirs();
    return result;
}
