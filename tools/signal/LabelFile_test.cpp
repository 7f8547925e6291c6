#include "tools/signal/LabelFile.h"

#include <gtest/gtest.h>

namespace velto {
namespace signal {
namespace {

TEST(LabelFileTest, FormatsInFileOrderAndParsesBack) {
    const std::vector<Label> labels = {{500, 900, LabelKind::Wink},
                                       {100, 200, LabelKind::Blink},
                                       {100, 150, LabelKind::HeadMotion},
                                       {0, 5000, LabelKind::CalibrateWink}};
    const std::string text = LabelFile::format({"made by a test"}, labels);
    EXPECT_EQ(text,
              "# made by a test\n"
              "0 5000 CALIBRATE_WINK\n"
              "# 100 150 HEAD_MOTION\n"
              "100 200 BLINK\n"
              "500 900 WINK\n");
    std::vector<Label> back;
    ParseError error;
    ASSERT_TRUE(LabelFile::parse(text, &back, &error));
    ASSERT_EQ(back.size(), 3u);  // the annotation is a comment
    EXPECT_EQ(back[2].startNs, 500);
    EXPECT_EQ(back[2].kind, LabelKind::Wink);
}

TEST(LabelFileTest, RejectsMalformedLinesNamingTheLine) {
    struct Case {
        const char* text;
        int line;
    } cases[] = {
            {"1 2 WINK\n\n3 4\n", 3},
            {"# c\n1 2 SNEEZE\n", 2},
            {"5 4 BLINK\n", 1},
            {"1 2x BLINK\n", 1},
            {"1 99999999999999999999 BLINK\n", 1},
            {"1 2 BLINK extra\n", 1},
    };
    for (const Case& c : cases) {
        std::vector<Label> labels;
        ParseError error;
        EXPECT_FALSE(LabelFile::parse(c.text, &labels, &error)) << c.text;
        EXPECT_EQ(error.line, c.line) << c.text;
        EXPECT_FALSE(error.message.empty());
    }
    std::vector<Label> labels;
    ParseError error;
    EXPECT_TRUE(LabelFile::parse("-5 -5 DON\r\n\t7 8\tDOFF", &labels, &error));
    EXPECT_EQ(labels.size(), 2u);
}

}  // namespace
}  // namespace signal
}  // namespace velto
