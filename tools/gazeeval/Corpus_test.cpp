#include "tools/gazeeval/Corpus.h"

#include <gtest/gtest.h>

#include "tests/harness/TestRoot.h"

namespace velto {
namespace gazetools {
namespace {

const char kRecording[] =
        "# <HEADER>\n"
        "# </HEADER>\n"
        "1000000000 500 0\n"
        "1031250000 510 0\n"
        "1062500000 505 0\n"
        "2000000000 500 0\n";

InputError parseError(const std::string& recording, const std::string& labels) {
    CorpusRecording rec;
    InputError error;
    EXPECT_FALSE(parseRecordingPair("r.txt", recording, "r.labels", labels, &rec, &error));
    return error;
}

TEST(CorpusTest, PartialBlinkCommentsAndTheDirectionOfALook) {
    // One second at 500, a look from 1 s to 2 s at 440, then 500 again.
    std::string text;
    for (int i = 0; i < 96; ++i) {
        const int64_t t = 31250000LL * i;
        text += std::to_string(t) + " " + (t >= 1000000000 && t < 2000000000 ? "440" : "500") + " 0\n";
    }
    CorpusRecording rec;
    InputError error;
    ASSERT_TRUE(parseRecordingPair("r.txt", text, "r.labels",
                                   "100000000 300000000 BLINK\n# 100000000 300000000 PARTIAL_BLINK\n"
                                   "# 400000000 500000000 SQUINT\n1000000000 2000000000 LOOK_AT_SCREEN\n",
                                   &rec, &error))
            << error.text();
    ASSERT_EQ(1u, rec.partialBlinks.size());
    EXPECT_EQ(300000000, rec.partialBlinks[0].endNs);
    EXPECT_FALSE(rec.lookRaisesReading({1000000000, 2000000000}));
    // Seen from the look's end, the return is a rise.
    EXPECT_TRUE(rec.lookRaisesReading({2000000000, 2900000000}));
}

TEST(CorpusTest, ChecksLabelsAgainstTheirRecording) {
    CorpusRecording rec;
    InputError error;
    ASSERT_TRUE(parseRecordingPair("r.txt", kRecording, "r.labels",
                                   "# comment\n1000000000 1500000000 WINK\n\n1100000000 2050000000 BLINK\n", &rec,
                                   &error))
            << error.text();
    EXPECT_EQ(2u, rec.labels.size());
    EXPECT_EQ(1000000000, rec.firstNs);
    EXPECT_EQ(2000000000, rec.lastNs);

    // Out of order: the line of the offending label is named, comments counted.
    InputError e = parseError(kRecording, "1200000000 1300000000 WINK\n# note\n1100000000 1150000000 BLINK\n");
    EXPECT_EQ("r.labels", e.file);
    EXPECT_EQ(3, e.line);
    EXPECT_NE(std::string::npos, e.message.find("sorted"));

    // Outside the recording (more than 100 ms past its last sample).
    e = parseError(kRecording, "1100000000 1200000000 WINK\n1900000000 2100000001 BLINK\n");
    EXPECT_EQ(2, e.line);
    EXPECT_EQ("r.labels:2: " + e.message, e.text());

    // A recording that does not parse, and one without samples.
    e = parseError("1000 500 0\n1031 x 0\n", "");
    EXPECT_EQ("r.txt", e.file);
    EXPECT_EQ(2, e.line);
    e = parseError("# only a header\n", "");
    EXPECT_EQ("r.txt", e.file);
    EXPECT_EQ(0, e.line);

    // A label line the label parser rejects keeps its line number.
    e = parseError(kRecording, "\n1100000000 1200000000 SNEEZE\n");
    EXPECT_EQ("r.labels", e.file);
    EXPECT_EQ(2, e.line);
}

TEST(CorpusTest, LoadsPairsAndRejectsIncompleteDirectories) {
    const std::string dir = test::makeTempDir("corpus");
    std::vector<CorpusRecording> corpus;
    InputError error;
    EXPECT_FALSE(loadCorpus(dir, &corpus, &error));
    EXPECT_NE(std::string::npos, error.text().find("no recordings"));

    ASSERT_TRUE(test::writeFile(dir + "/b.txt", kRecording));
    ASSERT_TRUE(test::writeFile(dir + "/b.labels", "1000000000 1500000000 WINK\n"));
    ASSERT_TRUE(test::writeFile(dir + "/a.txt", kRecording));
    ASSERT_TRUE(test::writeFile(dir + "/notes.info", "not a recording\n"));
    EXPECT_FALSE(loadCorpus(dir, &corpus, &error));
    EXPECT_EQ(dir + "/a.labels", error.file);

    ASSERT_TRUE(test::writeFile(dir + "/a.labels", ""));
    ASSERT_TRUE(loadCorpus(dir, &corpus, &error)) << error.text();
    ASSERT_EQ(2u, corpus.size());
    EXPECT_EQ("a", corpus[0].name);
    EXPECT_EQ("b", corpus[1].name);
}

TEST(CorpusTest, WornSpansFollowDonAndDoff) {
    CorpusRecording rec;
    rec.firstNs = 0;
    rec.lastNs = 100;
    using signal::LabelKind;
    rec.labels = {{10, 20, LabelKind::Don}, {50, 60, LabelKind::Doff}, {70, 80, LabelKind::Don}};
    const std::vector<Span> worn = rec.wornSpans();
    ASSERT_EQ(2u, worn.size());
    EXPECT_EQ(20, worn[0].startNs);
    EXPECT_EQ(50, worn[0].endNs);
    EXPECT_EQ(80, worn[1].startNs);
    EXPECT_EQ(100, worn[1].endNs);

    // Without a DON first, the recording starts on the head.
    rec.labels = {{50, 60, LabelKind::Doff}};
    ASSERT_EQ(1u, rec.wornSpans().size());
    EXPECT_EQ(0, rec.wornSpans()[0].startNs);
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
