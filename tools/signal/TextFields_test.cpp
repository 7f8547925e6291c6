#include "tools/signal/TextFields.h"

#include <gtest/gtest.h>

namespace velto {
namespace signal {
namespace {

TEST(TextFieldsTest, IntegersAreWholeFieldsWithinSixtyFourBits) {
    int64_t v = 0;
    EXPECT_TRUE(parseInt64("9223372036854775807", &v));
    EXPECT_EQ(v, INT64_MAX);
    EXPECT_TRUE(parseInt64("-9223372036854775808", &v));
    EXPECT_EQ(v, INT64_MIN);
    EXPECT_TRUE(parseInt64("+7", &v));
    EXPECT_EQ(v, 7);
    for (const char* bad :
         {"9223372036854775808", "-9223372036854775809", "", "-", "1.0", "12a", " 1", "0x10"}) {
        EXPECT_FALSE(parseInt64(bad, &v)) << bad;
    }
    double d = 0;
    EXPECT_TRUE(parseDouble("-1.5e3", &d));
    EXPECT_EQ(d, -1500);
    for (const char* bad : {"inf", "nan", "0x1p3", "1e999", "1.5s", ""})
        EXPECT_FALSE(parseDouble(bad, &d)) << bad;
}

TEST(TextFieldsTest, LinesAndFieldsSplitOnNewlinesAndBlanks) {
    EXPECT_EQ(splitLines("a\r\nb\n\nc"), (std::vector<std::string_view>{"a", "b", "", "c"}));
    EXPECT_TRUE(splitLines("").empty());
    EXPECT_EQ(splitFields(" \t1  2\t3 "), (std::vector<std::string_view>{"1", "2", "3"}));
}

}  // namespace
}  // namespace signal
}  // namespace velto
