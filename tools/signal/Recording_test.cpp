#include "tools/signal/Recording.h"

#include <gtest/gtest.h>

namespace velto {
namespace signal {
namespace {

TEST(RecordingTest, WritesTheLogFormatAndReadsItBack) {
    std::string text;
    Recording::appendComment(&text, "<HEADER>");
    Recording::appendSample(&text, {1000, 291, true});
    Recording::appendSample(&text, {-1, 16383, false});
    EXPECT_EQ(text, "# <HEADER>\n1000 291 1\n-1 16383 0\n");

    std::vector<RecordedSample> samples;
    std::vector<std::string> comments;
    ParseError error;
    ASSERT_TRUE(
            Recording::parse(text + "\n#\n9223372036854775807 0 0", &samples, &comments, &error));
    ASSERT_EQ(samples.size(), 3u);
    EXPECT_EQ(samples[0].reading, 291);
    EXPECT_TRUE(samples[0].flag);
    EXPECT_EQ(samples[2].timestampNs, INT64_MAX);
    EXPECT_EQ(comments, (std::vector<std::string>{"<HEADER>", ""}));
}

TEST(RecordingTest, RejectsBadSampleLinesNamingTheLine) {
    const char* bad[] = {"1 16384 0", "1 -1 0", "1 5 2", "1 5", "x 5 0", "1 5 0 0", "1 5.0 0"};
    for (const char* line : bad) {
        std::vector<RecordedSample> samples;
        ParseError error;
        EXPECT_FALSE(Recording::parse(std::string("# h\n10 1 0\n") + line + "\n", &samples, nullptr,
                                      &error))
                << line;
        EXPECT_EQ(error.line, 3) << line;
    }
}

}  // namespace
}  // namespace signal
}  // namespace velto
