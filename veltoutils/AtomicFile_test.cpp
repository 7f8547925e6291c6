#include "veltoutils/AtomicFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "tests/harness/SaveFaults.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const char kDir[] = "/data/system/gaze/atomic";
const char kFile[] = "/data/system/gaze/atomic/params.txt";

TEST(AtomicFile, ReplacesWholeAndStagedFilesWaitForCommit) {
    ASSERT_TRUE(AtomicFile::write(kFile, android::String8("first\n")));
    EXPECT_EQ("first\n", test::readFile(test::underRoot(kFile)));
    struct stat st;
    ASSERT_EQ(0, stat(test::underRoot(kFile).c_str(), &st));
    EXPECT_EQ(0644u, st.st_mode & 07777);  // readable by the other system services

    {
        AtomicFile file(kFile);
        ASSERT_TRUE(file.stage(android::String8("second\n")));
        // Staged but not committed: readers still see the old contents.
        EXPECT_EQ("first\n", test::readFile(test::underRoot(kFile)));
        EXPECT_EQ(2u, test::listDir(test::underRoot(kDir)).size());
        ASSERT_TRUE(file.commit());
    }
    EXPECT_EQ("second\n", test::readFile(test::underRoot(kFile)));

    {
        AtomicFile file(kFile);
        ASSERT_TRUE(file.stage(android::String8("dropped\n")));
    }  // neither committed nor discarded: the destructor drops it
    EXPECT_EQ("second\n", test::readFile(test::underRoot(kFile)));
    EXPECT_EQ(std::vector<std::string>{"params.txt"}, test::listDir(test::underRoot(kDir)));
}

TEST(AtomicFile, FailedSavesLeaveTheOldFileByteForByte) {
    const std::string old = "VERSION = 3.0\nDON_THRESH = 1007\n";
    struct Fault {
        const char* name;
        std::function<bool()> save;
    };
    const android::String8 big(std::string(4096, 'x').c_str());
    const Fault faults[] = {
            {"full disk", [&] {
                 test::ScopedFullDisk full(100);
                 return AtomicFile::write(kFile, big);
             }},
            {"unwritable directory", [&] {
                 test::ScopedUnwritableDir locked(test::underRoot(kDir));
                 return AtomicFile::write(kFile, android::String8("new\n"));
             }},
            {"directory in the way", [&] {
                 return AtomicFile::write((std::string(kFile) + "/below").c_str(), android::String8("new\n"));
             }},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        ASSERT_TRUE(test::writeFile(test::underRoot(kFile), old));
        EXPECT_FALSE(fault.save());
        EXPECT_EQ(old, test::readFile(test::underRoot(kFile)));
        EXPECT_EQ(std::vector<std::string>{"params.txt"}, test::listDir(test::underRoot(kDir)));
    }
}

}  // namespace
}  // namespace velto
