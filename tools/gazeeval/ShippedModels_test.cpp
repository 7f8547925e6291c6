// The shipped detector files on real eyelid motion: one person's long, slow,
// very long and partial blinks and squints. Nobody made a gesture there, so
// every double blink or wink that the library reports is false.
//
// Looks at the display are not checked here: with the threshold of a wearer
// whose look moves the reading less than a blink does, the look detector takes
// long blinks for looks (docs/models.md has the figures).
#include <dirent.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/harness/TestRoot.h"
#include "tools/gazeeval/Evaluation.h"

namespace velto {
namespace gazetools {
namespace {

TEST(ShippedModelsOnRealEyes, NoDoubleBlinkOrWinkOnOnePersonsBlinksAndSquints) {
    std::vector<CorpusRecording> corpus;
    InputError inputError;
    ASSERT_TRUE(loadCorpus(VELTO_REAL_BLINKS, &corpus, &inputError)) << inputError.text();
    ASSERT_EQ(5u, corpus.size());
    // The library opens files below the test's root.
    const std::string dir = test::underRoot("/system/etc/gaze");
    DIR* etc = opendir(VELTO_GAZE_ETC);
    ASSERT_NE(nullptr, etc);
    while (const dirent* e = readdir(etc)) {
        const std::string name = e->d_name;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".txt") != 0) continue;
        std::string text;
        ASSERT_TRUE(readWholeFile(std::string(VELTO_GAZE_ETC) + "/" + name, &text)) << name;
        ASSERT_TRUE(test::writeFile(dir + "/" + name, text)) << name;
    }
    closedir(etc);
    const ModelFiles models = ModelFiles::inDirectory(dir);
    CorpusReport report;
    std::string error;
    ASSERT_TRUE(evaluateCorpus(corpus, models, defaultScratchDir(), 2, &report, nullptr, &error)) << error;
    for (const RecordingReport& r : report.recordings) {
        for (const DetectionRecord& d : r.detections) {
            if (d.baseline || d.missedLabel || d.gesture == std::string("LOOK_AT_SCREEN")) continue;
            ADD_FAILURE() << r.name << ": " << d.gesture << " at " << d.timeNs;
        }
    }
    EXPECT_EQ(0, report.doubleBlink.cascade.detections);
    EXPECT_EQ(0, report.wink.cascade.detections);
    // The recordings were replayed whole: five minutes of wear.
    EXPECT_NEAR(5.0 / 60.0, report.doubleBlink.cascade.wearHours, 0.005);
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
