#include "hardware_legacy/power.h"

#include <gtest/gtest.h>

#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

TEST(WakeLockShim, WritesLockNamesToThePowerFilesUnderTheRoot) {
    ASSERT_TRUE(test::writeFile(test::underRoot("/sys/power/wake_lock"), ""));
    ASSERT_TRUE(test::writeFile(test::underRoot("/sys/power/wake_unlock"), ""));

    EXPECT_EQ(0, acquire_wake_lock(PARTIAL_WAKE_LOCK, "LockA"));
    EXPECT_EQ(0, release_wake_lock("LockA"));
    EXPECT_GT(0, acquire_wake_lock(42, "LockB"));  // unknown lock type
    EXPECT_GT(0, acquire_wake_lock(PARTIAL_WAKE_LOCK, nullptr));

    EXPECT_EQ("LockA", test::readFile(test::underRoot("/sys/power/wake_lock")));
    EXPECT_EQ("LockA", test::readFile(test::underRoot("/sys/power/wake_unlock")));
}

}  // namespace
}  // namespace velto
