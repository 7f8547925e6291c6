#include "veltoutils/Utils.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/harness/TestRoot.h"
#include "veltoutils/Paths.h"

namespace velto {
namespace {

TEST(Paths, PrefixesAbsoluteDevicePathsOnceAndLeavesOthersAlone) {
    const std::string root = test::testRoot();
    ASSERT_FALSE(root.empty());
    EXPECT_EQ(root + "/dev/veltohub", std::string(Paths::resolve("/dev/veltohub").string()));
    EXPECT_EQ("relative/file", std::string(Paths::resolve("relative/file").string()));
    // Resolving twice gives the same path.
    android::String8 once = Paths::resolve("/data/system/gaze/x");
    EXPECT_EQ(once, Paths::resolve(once));
    // A sibling whose name merely starts like the root is still prefixed.
    EXPECT_EQ(root + root + "x/y", std::string(Paths::resolve((root + "x/y").c_str()).string()));
}

TEST(Utils, FileHelpersWorkBelowTheRootAndKeepErrno) {
    EXPECT_TRUE(Utils::ensurePathExists("/data/system/gaze/sub/file.txt", false));
    struct stat st;
    ASSERT_EQ(0, stat(test::underRoot("/data/system/gaze/sub").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_FALSE(Utils::doesFileExist("/data/system/gaze/sub/file.txt"));

    // Attribute-style writes need an existing file; creating is explicit.
    EXPECT_EQ(-ENOENT, Utils::writeStringToFile("/data/system/gaze/sub/file.txt", android::String8("1")));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, Utils::writeStringToFile("/data/system/gaze/sub/file.txt", android::String8("123\n\n"), true));
    EXPECT_TRUE(Utils::doesFileExist("/data/system/gaze/sub/file.txt"));
    errno = EAGAIN;  // left by an earlier call: an empty value still writes
    EXPECT_EQ(0, Utils::writeStringToFile("/data/system/gaze/sub/empty.txt", android::String8(""), true));

    android::String8 text;
    EXPECT_EQ(0, Utils::readFileContents("/data/system/gaze/sub/file.txt", false, &text));
    EXPECT_EQ(android::String8("123\n\n"), text);
    EXPECT_EQ(android::String8("123"), Utils::stripTrailingNewlines(text));
    EXPECT_EQ(android::String8(""), Utils::stripTrailingNewlines(android::String8("\n")));
    EXPECT_EQ(-ENOENT, Utils::readFileContents("/data/system/gaze/missing", false, &text));
    EXPECT_EQ(android::String8(""), text);

    // A directory cannot be made where a file stands.
    EXPECT_FALSE(Utils::ensurePathExists("/data/system/gaze/sub/file.txt/deeper", true));
    EXPECT_FALSE(Utils::ensurePathExists("/data/system/gaze/sub/file.txt", true));
    EXPECT_EQ(ENOTDIR, errno);
}

TEST(Utils, SerialNumberAndDeviceIdComeFromTheEnvironment) {
    // The test registration sets VELTOGAZE_SERIAL to "Gx7/9 a".
    EXPECT_EQ(android::String8("Gx7/9 a"), Utils::getVeltoSerialNumber());
    EXPECT_EQ(android::String8("Gx7_9_a"), Utils::getDeviceID());
    EXPECT_EQ(TRI_STATE_TRUE, Utils::toTriStateBool(true));
    EXPECT_EQ(TRI_STATE_FALSE, Utils::toTriStateBool(false));
    const int64_t now = Utils::getEpochTimeNanos();
    EXPECT_GT(now, 1600000000LL * 1000000000LL);
}

}  // namespace
}  // namespace velto
