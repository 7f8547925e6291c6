#include "proxdata/ProxDataLogger.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const std::string kDir = "/data/system/gaze/";

TEST(ProxDataLogger, WritesCommentsAndSampleLines) {
    test::ScopedLogCapture capture;
    ProxDataLogger logger;
    EXPECT_FALSE(logger.close());  // closed: false and silent
    EXPECT_EQ(0u, test::LogCapture::lines().size());
    logger.onProxData(ProxData(1, 1));  // dropped silently
    EXPECT_FALSE(logger.writePacket(ProxData(1, 1)));

    ASSERT_TRUE(logger.open(android::String8("named.txt")));
    EXPECT_TRUE(logger.isOpen());
    EXPECT_FALSE(logger.open(android::String8("other.txt")));  // the first file stays open
    EXPECT_TRUE(test::LogCapture::contains("open called for file: other.txt when log was already open for file: named.txt"));

    EXPECT_TRUE(logger.writeComment(android::String8("<HEADER>")));
    logger.onProxData(ProxData(0x4123, 1000));
    EXPECT_TRUE(logger.writePacket(ProxData(0x3FFF, -5)));
    EXPECT_TRUE(logger.close());
    EXPECT_FALSE(logger.isOpen());

    EXPECT_EQ("# <HEADER>\n1000 291 1\n-5 16383 0\n", test::readFile(test::underRoot(kDir + "named.txt")));
}

TEST(ProxDataLogger, GeneratedNameUsesDeviceIdAndEpochNanos) {
    test::ScopedLogCapture capture;
    ProxDataLogger logger;
    ASSERT_TRUE(logger.open());
    const std::string path = logger.getOpenPath().string();
    ASSERT_TRUE(logger.close());
    const std::string name = path.substr(path.rfind('/') + 1);
    EXPECT_TRUE(test::LogCapture::contains("Got empty log filename, so creating one: " + name));
    // "prox_data_<device id>_<epoch ns>.txt"; without a serial the ID is "unknown".
    ASSERT_EQ(0u, name.find("prox_data_unknown_")) << name;
    ASSERT_EQ(".txt", name.substr(name.size() - 4));
    const long long nanos = atoll(name.substr(18, name.size() - 22).c_str());
    EXPECT_GT(nanos, 1600000000LL * 1000000000LL);
    EXPECT_EQ(0, access(path.c_str(), F_OK));
}

TEST(ProxDataLogger, FailuresAreReportedNotFatal) {
    test::ScopedLogCapture capture;
    ProxDataLogger logger;
    // A directory that cannot be opened for the file.
    EXPECT_FALSE(logger.open(android::String8("no/such/dir/file.txt")));
    EXPECT_TRUE(test::LogCapture::contains("Error! Opening log file for write:"));
    EXPECT_FALSE(logger.isOpen());

    // A full disk: writes fail, and the failure is logged once per write.
    const std::string full = test::underRoot(kDir + "full.txt");
    ASSERT_EQ(0, symlink("/dev/full", full.c_str()));
    ASSERT_TRUE(logger.open(android::String8("full.txt")));
    bool anyFailed = false;
    for (int i = 0; i < 2000 && !anyFailed; ++i) anyFailed = !logger.writePacket(ProxData(i, i));
    EXPECT_TRUE(anyFailed);
    EXPECT_TRUE(test::LogCapture::contains("Failed to write ProxData packet to log file: full.txt"));
    logger.close();
    unlink(full.c_str());
}

}  // namespace
}  // namespace velto
