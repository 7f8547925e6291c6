#include "tools/gazetrain/TrainingSet.h"

#include <gtest/gtest.h>

#include <cmath>

#include "classifier/BoostingDetector.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace gazetools {
namespace {

using signal::LabelKind;
constexpr int64_t kMs = 1000000;

// A recording at about 32 Hz with jitter, `level(t_ms)` as its reading.
template <typename Level>
CorpusRecording makeRecording(double seconds, Level level, std::vector<signal::Label> labels = {},
                              double gapAtSeconds = -1.0) {
    CorpusRecording rec;
    rec.name = "synthetic";
    int64_t t = 5000 * kMs;
    for (int i = 0; t < 5000 * kMs + static_cast<int64_t>(seconds * 1e9); ++i) {
        const double ms = static_cast<double>(t - 5000 * kMs) * 1e-6;
        rec.samples.push_back({t, static_cast<uint16_t>(std::lround(level(ms) + (i * 7919 % 11) - 5)), false});
        t += 31250000 + (i % 3 - 1) * 1500000;
        if (i % 97 == 50) t += 31250000;  // a skipped sample
        if (gapAtSeconds > 0 && std::fabs(ms - gapAtSeconds * 1000) < 16) t += 400 * kMs;
    }
    rec.firstNs = rec.samples.front().timestampNs;
    rec.lastNs = rec.samples.back().timestampNs;
    for (auto& l : labels) {
        l.startNs += 5000 * kMs;
        l.endNs += 5000 * kMs;
    }
    rec.labels = labels;
    return rec;
}

TEST(TrainingSetTest, GridWindowsAreTheDetectorsWindows) {
    const CorpusRecording rec = makeRecording(
            20.0, [](double ms) { return 600.0 + 80.0 * std::sin(ms / 300.0); }, {}, 9.0);
    const GridStream grid = resampleLikeDetector(rec.samples, 32.0f);
    ASSERT_EQ(2u, grid.segmentStarts.size());  // the 400 ms gap resets the detector

    const std::string path = test::underRoot("/trivial_cascade.txt");
    ASSERT_TRUE(test::writeFile(path, "1 6 16 1\n1 0.5\n0 0 1 0 0 1 1.0 0.0\n"));
    DetectorOptions options;
    options.frame_rate = 32.0f;
    BoostingDetector detector(options);
    ASSERT_TRUE(detector.loadDetectorFromFile(path.c_str()));

    // Replaying the recording into the detector, its window always holds the
    // newest grid values of the current segment.
    size_t produced = 0;
    GridStream partial;
    for (size_t k = 0; k < rec.samples.size(); ++k) {
        BoostingDetector::GestureInfo info;
        detector.normalizeFrameRateAndDetectGesture(static_cast<double>(rec.samples[k].timestampNs) * 1e-6,
                                                    rec.samples[k].reading, &info);
        partial = resampleLikeDetector(std::vector<signal::RecordedSample>(rec.samples.begin(),
                                                                            rec.samples.begin() + k + 1),
                                       32.0f);
        produced = partial.size();
        const SeqSample* window = detector.getSample();
        ASSERT_NE(nullptr, window);
        const size_t held = std::min<size_t>(6, produced - partial.segmentStartOf(produced - 1));
        ASSERT_EQ(held == 6, window->full()) << "sample " << k;
        for (size_t i = 0; i < held; ++i) {
            ASSERT_EQ(partial.values[produced - held + i], window->valueAt(static_cast<int>(i))) << "sample " << k;
        }
    }
    EXPECT_EQ(grid.values, partial.values);
    // Grid times step by the frame period within a segment.
    for (size_t i = 1; i < grid.size(); ++i) {
        if (grid.segmentStartOf(i) == i) continue;
        ASSERT_NEAR(31.25, grid.timesMs[i] - grid.timesMs[i - 1], 1e-6);
    }
}

TEST(TrainingSetTest, RolesAroundADoubleBlink) {
    const CorpusRecording rec = makeRecording(
            20.0, [](double) { return 500.0; }, {{10000 * kMs, 10500 * kMs, LabelKind::DoubleBlink}});
    TargetSetup setup;
    setup.target = Target::DoubleBlink;
    setup.windowLength = 32;
    const TrainingStream ts = prepareStream(rec, setup);
    EXPECT_EQ(1, ts.events);
    const double s = 5000 + 10000, e = 5000 + 10500;
    int positives = 0;
    for (size_t i = 0; i < ts.grid.size(); ++i) {
        const double t = ts.grid.timesMs[i];
        const bool full = i + 1 >= 32 && ts.grid.segmentStartOf(i) + 31 <= i;
        const bool inBand = t >= e + setup.bandFromMs && t <= e + setup.bandToMs &&
                            ts.grid.timesMs[i - 31] <= s - setup.preMarginMs;
        const bool ignored = t >= e - setup.ignoreBeforeMs && t <= e + setup.bandToMs + setup.ignoreAfterMs;
        const WindowRole expected = !full ? WindowRole::Unused
                                    : inBand ? WindowRole::Positive
                                    : ignored ? WindowRole::Unused
                                              : WindowRole::Negative;
        ASSERT_EQ(static_cast<int>(expected), static_cast<int>(ts.roles[i])) << "window ending at " << t;
        positives += expected == WindowRole::Positive;
    }
    EXPECT_GE(positives, 6);
    EXPECT_EQ(positives, ts.positives);
}

TEST(TrainingSetTest, ANegativesOnlyRecordingGivesEveryFullWindowAsANegative) {
    const CorpusRecording rec = makeRecording(
            20.0, [](double) { return 500.0; }, {{10000 * kMs, 10500 * kMs, LabelKind::DoubleBlink}}, 9.0);
    TargetSetup setup;
    setup.windowLength = 32;
    const TrainingStream ts = prepareNegativeStream(rec, setup);
    EXPECT_TRUE(ts.negativesOnly);
    EXPECT_EQ(0, ts.events);
    EXPECT_EQ(0, ts.positives);
    int full = 0;
    for (size_t i = 0; i < ts.grid.size(); ++i) {
        const bool isFull = i + 1 >= 32 && ts.grid.segmentStartOf(i) + 31 <= i;
        full += isFull;
        ASSERT_EQ(isFull, ts.roles[i] == WindowRole::Negative) << "window ending at " << ts.grid.timesMs[i];
    }
    EXPECT_EQ(full, ts.negatives);
    EXPECT_GT(full, 400);
    // Without a look calibration, look windows are gated as for the most
    // permissive calibration; the other targets keep the cascade's range.
    EXPECT_EQ(1000.0f, ts.gate.max);
    setup.target = Target::LookUp;
    const TrainingStream look = prepareNegativeStream(rec, setup);
    EXPECT_EQ(kLeastLookThreshold, look.gate.min);
    EXPECT_EQ(500.0f, look.gate.max);
}

TEST(TrainingSetTest, EachLookTargetLearnsItsDirectionAndRejectsTheOthersReturn) {
    // One look lowers the level from 20 s to 23 s, another raises it from
    // 40 s to 44 s; each takes 150 ms to move.
    auto level = [](double ms) {
        if (ms >= 20000 && ms < 23150) return ms < 20150 ? 500 - (ms - 20000) * 100 / 150 : ms < 23000 ? 400 : 400 + (ms - 23000) * 100 / 150;
        if (ms >= 40000 && ms < 44150) return ms < 40150 ? 500 + (ms - 40000) * 100 / 150 : ms < 44000 ? 600 : 600 - (ms - 44000) * 100 / 150;
        return 500.0;
    };
    const CorpusRecording rec = makeRecording(60.0, level,
                                              {{20000 * kMs, 23000 * kMs, LabelKind::LookAtScreen},
                                               {23000 * kMs, 23150 * kMs, LabelKind::LookAwayFromScreen},
                                               {40000 * kMs, 44000 * kMs, LabelKind::LookAtScreen},
                                               {44000 * kMs, 44150 * kMs, LabelKind::LookAwayFromScreen}});
    const GridStream grid = resampleLikeDetector(rec.samples, 32.0f);
    for (Target target : {Target::LookUp, Target::LookDown}) {
        SCOPED_TRACE(target == Target::LookUp ? "up" : "down");
        TargetSetup setup;
        setup.target = target;
        setup.windowLength = 128;
        std::vector<TargetEvent> events;
        std::vector<std::pair<double, double>> ignored;
        findTargetEvents(rec, grid, setup, &events, &ignored);
        ASSERT_EQ(1u, events.size());
        const double start = target == Target::LookUp ? 40000 : 20000;
        const double back = target == Target::LookUp ? 44000 : 23000;
        EXPECT_DOUBLE_EQ(5000 + start, events[0].startMs);
        EXPECT_DOUBLE_EQ(5000 + start + 150, events[0].endMs);
        EXPECT_DOUBLE_EQ(5000 + back, events[0].limitMs);  // positives end before it looks back
        // By default the other look's return is left out; a long window
        // learns it as a negative.
        const double otherBack = 5000 + (target == Target::LookUp ? 23000 : 44000);
        ASSERT_EQ(1u, ignored.size());
        EXPECT_DOUBLE_EQ(otherBack, ignored[0].first);
        events.clear();
        ignored.clear();
        setup.returnsAsNegatives = true;
        findTargetEvents(rec, grid, setup, &events, &ignored);
        EXPECT_EQ(1u, events.size());
        EXPECT_TRUE(ignored.empty());

        // ... right where a detector would answer it.
        const TrainingStream ts = prepareStream(rec, setup);
        int positives = 0, negatives = 0;
        for (size_t i = 0; i < ts.grid.size(); ++i) {
            const double t = ts.grid.timesMs[i];
            if (t >= 5000 + start && t < 5000 + back) positives += ts.roles[i] == WindowRole::Positive;
            if (t >= otherBack + 550 && t <= otherBack + 800) negatives += ts.roles[i] == WindowRole::Negative;
            if (t < 5000 + start || t > 5000 + back) {
                EXPECT_NE(WindowRole::Positive, ts.roles[i]);
            }
        }
        EXPECT_GT(positives, 3);
        EXPECT_GE(negatives, 7);
    }

    // Inside a look calibration and one window after it, nothing is an
    // example: the module's detector is off there and starts afresh.
    CorpusRecording calibrated = rec;
    calibrated.labels.insert(calibrated.labels.begin(), {24000 * kMs, 30000 * kMs, LabelKind::CalibrateLookAtScreen});
    TargetSetup setup;
    setup.target = Target::LookDown;
    setup.windowLength = 64;
    setup.skipLookCalibration = true;
    const TrainingStream ts = prepareStream(calibrated, setup);
    int used = 0, usedAfter = 0;
    for (size_t i = 0; i < ts.grid.size(); ++i) {
        const double t = ts.grid.timesMs[i];
        if (t >= 24000 && t <= 32000) used += ts.roles[i] != WindowRole::Unused;
        if (t > 32100) usedAfter += ts.roles[i] != WindowRole::Unused;
    }
    EXPECT_EQ(0, used);
    EXPECT_GT(usedAfter, 0);
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
