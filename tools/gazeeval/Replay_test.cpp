#include "tools/gazeeval/Replay.h"

#include <gtest/gtest.h>

#include "tests/harness/TestRoot.h"
#include "tools/gazeeval/Baseline.h"

namespace velto {
namespace gazetools {
namespace {

using signal::LabelKind;
constexpr int64_t kMs = 1000000;

// A detector that never fires: its one layer's score cannot exceed 1.
const char kSilentCascade[] = "1 6 16 1\n1 1.0\n0 0 1 0 0 1 1.0 0.0\n";

ModelFiles silentModels() {
    const std::string dir = test::underRoot("/models");
    EXPECT_TRUE(test::makeDirs(dir));
    EXPECT_TRUE(test::writeFile(dir + "/silent.txt", kSilentCascade));
    EXPECT_TRUE(test::writeFile(dir + "/two_blink_detector_set.txt", "silent.txt\n"));
    EXPECT_TRUE(test::writeFile(dir + "/laser_detector_set.txt", "silent.txt\n"));
    EXPECT_TRUE(test::writeFile(dir + "/multi_dur_wink_detector.txt", "280 800\nsilent.txt\n"));
    return ModelFiles::inDirectory(dir);
}

// 32 Hz readings of `level(ms since start)`.
template <typename Level>
CorpusRecording recording(double seconds, Level level, std::vector<signal::Label> labels) {
    CorpusRecording rec;
    rec.name = "r";
    for (int64_t t = 0; t < static_cast<int64_t>(seconds * 1e9); t += 31250000) {
        rec.samples.push_back({t, static_cast<uint16_t>(level(static_cast<double>(t) * 1e-6)), false});
    }
    rec.firstNs = 0;
    rec.lastNs = rec.samples.back().timestampNs;
    rec.labels = std::move(labels);
    return rec;
}

TEST(ReplayTest, LookAtScreenThresholdComesFromTheCalibrator) {
    // During the calibration span the level alternates between 100 and 130
    // every second: the calibrator's two clusters, 30 apart, give 24.
    const CorpusRecording rec = recording(
            30.0, [](double ms) { return ms >= 2000 && ms < 12000 && static_cast<int>(ms / 1000) % 2 ? 130 : 100; },
            {{2000 * kMs, 12000 * kMs, LabelKind::CalibrateLookAtScreen}});
    RecordingReplay replay;
    std::string error;
    const std::string scratch = test::testRoot() + "/scratch";
    ASSERT_TRUE(test::makeDirs(scratch));
    ASSERT_TRUE(replayRecording(rec, silentModels(), scratch, &replay, &error)) << error;
    EXPECT_TRUE(replay.lookCalibrated);
    EXPECT_FLOAT_EQ(24.0f, replay.lookThreshold);
    EXPECT_EQ(12000 * kMs, replay.lookFromNs);
    // Without a wink calibration the wink detector has no active detector.
    EXPECT_FALSE(replay.winkCalibrated);
    EXPECT_EQ(rec.firstNs, replay.winkFromNs);
    EXPECT_TRUE(replay.doubleBlink.cascade.empty());
}

TEST(ReplayTest, BrokenModelFilesAreNamed) {
    ModelFiles models = silentModels();
    std::string error;
    ASSERT_TRUE(models.check(&error)) << error;
    ASSERT_TRUE(test::writeFile(models.winkList, "280 800\nmissing.txt\n"));
    EXPECT_FALSE(models.check(&error));
    EXPECT_EQ(models.winkList + ": the library cannot load this wink detector list", error);
}

TEST(ReplayTest, BaselineFindsClosuresByTheirTiming) {
    // Level 500 with +-2 of noise. Closures of 150 ms (+80): a pair 350 ms
    // apart (a double blink), a lone one, and three long ones of 500 ms
    // (+200) in the wink calibration span and one after it.
    auto level = [](double ms) {
        const int noise = static_cast<int>(ms / 31.25) % 3 - 1;
        auto in = [ms](double from, double len) { return ms >= from && ms < from + len; };
        if (in(5000, 150) || in(5350, 150) || in(9000, 150)) return 580 + noise;
        if (in(15000, 500) || in(18000, 500) || in(21000, 500) || in(30000, 500)) return 700 + noise;
        return 500 + noise;
    };
    const CorpusRecording rec = recording(40.0, level, {});
    const ThresholdBaseline baseline(rec);
    const std::vector<int64_t> pairs = baseline.doubleBlinks();
    ASSERT_EQ(1u, pairs.size());
    EXPECT_NEAR(5500 * kMs, pairs[0], 40 * kMs);
    const std::vector<int64_t> winks = baseline.winks({14000 * kMs, 24000 * kMs});
    ASSERT_EQ(1u, winks.size());
    EXPECT_NEAR(30500 * kMs, winks[0], 40 * kMs);
    EXPECT_TRUE(baseline.winks({}).empty());
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
