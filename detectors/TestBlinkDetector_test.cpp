#include "detectors/TestBlinkDetector.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

class Blink : public TestBlinkDetector {
public:
    void reset() override {}
};

TEST(TestBlinkDetector, FiresOnceAbove999AndReArmsBelow899) {
    Blink d;
    auto at = [&d](float v) { return d.update(0, &v, 1); };
    EXPECT_EQ(-1, at(999.0f));  // strictly above
    EXPECT_EQ(0, at(999.5f));
    EXPECT_EQ(-1, at(2000.0f));
    EXPECT_EQ(-1, at(899.0f));  // strictly below re-arms
    EXPECT_EQ(-1, at(1000.0f));
    EXPECT_EQ(-1, at(898.0f));
    EXPECT_EQ(0, at(1000.0f));
    const float v = 5000.0f;
    EXPECT_EQ(-1, d.update(0, &v, 0));
    EXPECT_EQ(android::String8("0.0.1"), d.getVersionString());
}

}  // namespace
}  // namespace velto
