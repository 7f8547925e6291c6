#include "tools/gazeeval/Scoring.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {
namespace {

constexpr int64_t kMs = 1000000;
constexpr int64_t kSec = 1000 * kMs;

ScoringPlan planWithTargets(std::vector<Span> targets) {
    ScoringPlan plan;
    plan.targets = std::move(targets);
    plan.wearHours = 1.0;
    return plan;
}

TEST(ScoringTest, MatchesWithinOneSecondAfterTheEndAndEachLabelOnce) {
    const ScoringPlan plan = planWithTargets({{10 * kSec, 11 * kSec}, {20 * kSec, 21 * kSec}, {30 * kSec, 31 * kSec}});
    GestureScore score;
    std::vector<Outcome> outcomes;
    std::vector<Span> missed;
    // 12.000999 s matches the first label; 22.001001 s is just too late for
    // the second; the third is matched at its start, and a second detection
    // for it is a false positive.
    scoreDetections(plan, {12 * kSec - 1 * kMs, 22 * kSec + 1 * kMs, 30 * kSec, 30 * kSec + 500 * kMs}, &score,
                    &outcomes, &missed);
    EXPECT_EQ(3, score.events);
    EXPECT_EQ(4, score.detections);
    EXPECT_EQ(2, score.matched);
    EXPECT_EQ((std::vector<Outcome>{Outcome::Matched, Outcome::FalsePositive, Outcome::Matched,
                                    Outcome::FalsePositive}),
              outcomes);
    ASSERT_EQ(1u, missed.size());
    EXPECT_EQ(20 * kSec, missed[0].startNs);
    // Latency is measured from the label's start: 1999 ms and 0 ms.
    ASSERT_EQ(2u, score.latenciesMs.size());
    EXPECT_DOUBLE_EQ(1999.0, score.latenciesMs[0]);
    EXPECT_DOUBLE_EQ(0.0, score.latenciesMs[1]);
    EXPECT_DOUBLE_EQ(2.0 / 3.0, score.recall());
    EXPECT_DOUBLE_EQ(0.5, score.precision());
    EXPECT_DOUBLE_EQ(2.0, score.fpPerHour());
}

TEST(ScoringTest, ALookCountsOnlyWhileItLastsUnlessScoredByTheOldRule) {
    // Two looks of 3 s; the first is reported 800 ms into it, the second only
    // 600 ms after the wearer looked back.
    ScoringPlan plan = planWithTargets({{10 * kSec, 13 * kSec}, {20 * kSec, 23 * kSec}});
    plan.slackNs = kLookMatchSlackNs;
    const std::vector<int64_t> detections = {10800 * kMs, 23600 * kMs};
    GestureScore score;
    std::vector<double> latency;
    scoreDetections(plan, detections, &score, nullptr, nullptr, nullptr, &latency);
    EXPECT_EQ(1, score.matched);
    EXPECT_EQ(2, score.detections);  // the late one is false, not late
    ASSERT_EQ(2u, latency.size());
    EXPECT_DOUBLE_EQ(800.0, latency[0]);
    EXPECT_TRUE(std::isnan(latency[1]));

    plan.slackNs = kMatchSlackNs;
    plan.latencyFromEnd = true;
    GestureScore old;
    scoreDetections(plan, detections, &old);
    EXPECT_EQ(2, old.matched);
    EXPECT_EQ((std::vector<double>{-2200.0, 600.0}), old.latenciesMs);
}

TEST(ScoringTest, FalseDoubleBlinksAreTracedToDoubletsAndPartialBlinks) {
    // Gaps of 300 ms (a doublet), 30 ms (one flickering closure) and 2 s.
    const std::vector<Span> blinks = {{10 * kSec, 10200 * kMs},  {10500 * kMs, 10700 * kMs},
                                      {20 * kSec, 20200 * kMs},  {20230 * kMs, 20400 * kMs},
                                      {22400 * kMs, 22600 * kMs}};
    const std::vector<Span> doublets = naturalDoublets(blinks);
    ASSERT_EQ(1u, doublets.size());
    EXPECT_EQ(10 * kSec, doublets[0].startNs);
    EXPECT_EQ(10700 * kMs, doublets[0].endNs);
    const std::vector<Span> partial = {{30 * kSec, 30200 * kMs}};
    EXPECT_EQ(FalseCause::NaturalDoublet, falseCause(11700 * kMs, doublets, partial));
    EXPECT_EQ(FalseCause::Elsewhere, falseCause(11701 * kMs, doublets, partial));
    EXPECT_EQ(FalseCause::PartialBlink, falseCause(30500 * kMs, doublets, partial));
    EXPECT_EQ(FalseCause::Elsewhere, falseCause(20400 * kMs, doublets, partial));
}

TEST(ScoringTest, OneDetectionCannotMatchTwoOverlappingLabels) {
    const ScoringPlan plan = planWithTargets({{10 * kSec, 11 * kSec}, {10500 * kMs, 11500 * kMs}});
    GestureScore score;
    scoreDetections(plan, {11 * kSec}, &score);
    EXPECT_EQ(1, score.matched);
    EXPECT_EQ(1, score.detections);
    EXPECT_DOUBLE_EQ(0.5, score.recall());
}

TEST(ScoringTest, CalibrationTimeIsNotScored) {
    CorpusRecording rec;
    rec.firstNs = 0;
    rec.lastNs = 3600 * kSec;
    using signal::LabelKind;
    rec.labels = {{0, 10 * kSec, LabelKind::Don},
                  {20 * kSec, 40 * kSec, LabelKind::CalibrateWink},
                  {38500 * kMs, 39500 * kMs, LabelKind::Wink},
                  {100 * kSec, 101 * kSec, LabelKind::Wink},
                  {1800 * kSec, 1801 * kSec, LabelKind::Doff}};
    const ScoringPlan plan = planScoring(rec, LabelKind::Wink, 40 * kSec);
    ASSERT_EQ(1u, plan.targets.size());
    EXPECT_EQ(100 * kSec, plan.targets[0].startNs);
    // Worn from the end of the DON to the start of the DOFF, scored from the
    // end of the calibration.
    EXPECT_NEAR((1800.0 - 40.0) / 3600.0, plan.wearHours, 1e-12);

    GestureScore score;
    // Before scoring starts, inside the calibration span, the late match of
    // the calibration wink: none of them counts. The last one, off the head,
    // is a false positive all the same.
    scoreDetections(plan, {5 * kSec, 26 * kSec, 40200 * kMs, 100500 * kMs, 2000 * kSec}, &score);
    EXPECT_EQ(1, score.events);
    EXPECT_EQ(1, score.matched);
    EXPECT_EQ(2, score.detections);
}

TEST(ScoringTest, UndefinedFiguresAreNanAndPercentilesInterpolate) {
    GestureScore empty;
    EXPECT_TRUE(std::isnan(empty.recall()));
    EXPECT_TRUE(std::isnan(empty.precision()));
    EXPECT_TRUE(std::isnan(empty.f1()));
    EXPECT_TRUE(std::isnan(empty.latencyPercentileMs(0.5)));

    GestureScore s;
    s.latenciesMs = {40, 10, 30, 20};
    EXPECT_DOUBLE_EQ(25.0, s.latencyPercentileMs(0.5));
    EXPECT_DOUBLE_EQ(38.5, s.latencyPercentileMs(0.95));

    GestureScore other;
    other.events = 4;
    other.matched = 3;
    other.detections = 3;
    s.add(other);
    EXPECT_DOUBLE_EQ(0.75, s.recall());
    EXPECT_DOUBLE_EQ(1.0, s.precision());
    EXPECT_NEAR(6.0 / 7.0, s.f1(), 1e-12);
}

TEST(ScoringTest, HoursInsideSubtractsOverlappingExclusionsOnce) {
    const std::vector<Span> worn = {{0, 10 * kSec}, {20 * kSec, 30 * kSec}};
    const std::vector<Span> excluded = {{5 * kSec, 8 * kSec}, {6 * kSec, 25 * kSec}};
    // Worn 2..10 and 20..30 = 18 s; excluded 5..25 takes 5 + 5 = 10 s.
    EXPECT_NEAR(8.0 / 3600.0, hoursInside(worn, 2 * kSec, 40 * kSec, excluded), 1e-12);
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
