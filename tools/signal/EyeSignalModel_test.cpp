#include "tools/signal/EyeSignalModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/signal/SampleClock.h"

namespace velto {
namespace signal {
namespace {

const int64_t kMs = 1000000;
const int64_t kSec = 1000000000;

struct Stream {
    std::vector<int64_t> t;
    std::vector<int> v;
    std::vector<Label> labels;

    std::vector<int> valuesIn(int64_t from, int64_t to) const {
        std::vector<int> out;
        for (size_t i = 0; i < t.size(); ++i)
            if (t[i] >= from && t[i] <= to) out.push_back(v[i]);
        return out;
    }
    int maxIn(int64_t from, int64_t to) const {
        const std::vector<int> in = valuesIn(from, to);
        return in.empty() ? -1 : *std::max_element(in.begin(), in.end());
    }
    double meanIn(int64_t from, int64_t to) const {
        const std::vector<int> in = valuesIn(from, to);
        double sum = 0;
        for (int x : in) sum += x;
        return in.empty() ? -1 : sum / in.size();
    }
};

Stream run(EyeSignalModel& model, int64_t start, int64_t end) {
    Stream s;
    SampleClock clock(start, 0, 0.7, 0, 5);
    while (clock.peek() < end) {
        const int64_t t = clock.next();
        s.t.push_back(t);
        s.v.push_back(model.sample(t));
    }
    model.takeLabels(INT64_MAX, &s.labels);
    return s;
}

WearerProfile quietWearer() {
    WearerProfile w = WearerProfile::draw(7);
    w.wornBaseline = 1200;
    w.blinkAmplitude = 100;
    w.winkAmplitude = 250;
    w.noiseSd = 5;
    w.driftSd = 10;
    w.lookShift = 120;
    return w;
}

TEST(EyeSignalModelTest, SpontaneousBlinksRaiseTheReadingInsideTheirLabels) {
    WearerProfile w = quietWearer();
    w.blinkRatePerMin = 20;
    w.halfBlinkShare = 0;
    // Only blinks, well apart: nothing may lift the reading before one.
    w.blinkPairShare = 0;
    w.doubletShare = 0;
    w.headMotionPerMin = 0;
    w.slipsPerHour = 0;
    w.squintsPerMin = 0;
    w.spikesPerHour = 0;
    EyeSignalModel model(w, 11, 0, true);
    const Stream s = run(model, 0, 120 * kSec);
    int blinks = 0;
    for (const Label& l : s.labels) {
        if (l.kind != LabelKind::Blink) continue;
        ++blinks;
        // The reading at the closure stands clearly above the open eye just
        // before the blink.
        const double before = s.meanIn(l.startNs - 300 * kMs, l.startNs - 60 * kMs);
        EXPECT_GT(s.maxIn(l.startNs, l.endNs), before + 0.4 * w.blinkAmplitude)
                << "blink at " << l.startNs;
    }
    // Twenty a minute for two minutes, give or take chance and refractory gaps.
    EXPECT_GT(blinks, 25);
    EXPECT_LT(blinks, 60);
}

TEST(EyeSignalModelTest, SpontaneousBlinkingHasSkewedIntervalsDoubletsAndPartialBlinks) {
    WearerProfile w = quietWearer();
    w.blinkRatePerMin = 18;
    w.blinkIntervalSpread = 0.8;
    w.doubletShare = 0.1;
    w.blinkPairShare = 0.05;
    w.halfBlinkShare = 0.5;
    w.squintsPerMin = 0;
    EyeSignalModel model(w, 5, 0, true);
    // A long run, sampled coarsely: only the labels are looked at.
    for (int64_t t = 0; t < 40 * 60 * kSec; t += 31250 * 1000) model.sample(t);
    std::vector<Label> labels;
    model.takeLabels(INT64_MAX, &labels);
    std::vector<Label> blinks;
    int partial = 0;
    for (const Label& l : labels) {
        if (l.kind == LabelKind::Blink) blinks.push_back(l);
        partial += l.kind == LabelKind::PartialBlink;
    }
    ASSERT_GT(blinks.size(), 500u);
    std::vector<double> intervals;
    int doublets = 0;
    for (size_t i = 1; i < blinks.size(); ++i) {
        const int64_t gap = blinks[i].startNs - blinks[i - 1].endNs;
        EXPECT_GE(gap, 100 * kMs);  // the lid opens between two blinks
        doublets += gap <= 350 * kMs;
        intervals.push_back(static_cast<double>(blinks[i].startNs - blinks[i - 1].startNs) / kSec);
    }
    std::sort(intervals.begin(), intervals.end());
    double mean = 0;
    for (double x : intervals) mean += x;
    mean /= static_cast<double>(intervals.size());
    // Positively skewed: the mean well above the median; the rate near the
    // wearer's, a doublet after about one blink in ten, half of them partial.
    EXPECT_GT(mean, 1.2 * intervals[intervals.size() / 2]);
    EXPECT_NEAR(60.0 / mean, w.blinkRatePerMin, 0.25 * w.blinkRatePerMin);
    EXPECT_NEAR(static_cast<double>(doublets) / blinks.size(), 0.1, 0.04);
    EXPECT_NEAR(static_cast<double>(partial) / blinks.size(), 0.5, 0.06);
}

TEST(EyeSignalModelTest, ScriptedGesturesHaveTheirShapeAndLabels) {
    const WearerProfile w = quietWearer();
    EyeSignalModel model(w, 3, 0, true);
    model.setSpontaneous(false);
    Label wink, blink, look;
    ASSERT_TRUE(model.schedule({SignalEventKind::Wink, 2 * kSec, 500 * kMs}, nullptr, &wink));
    ASSERT_TRUE(model.schedule({SignalEventKind::Blink, 5 * kSec, 200 * kMs}, nullptr, &blink));
    ASSERT_TRUE(model.schedule({SignalEventKind::Look, 8 * kSec, 3 * kSec}, nullptr, &look));
    ASSERT_TRUE(model.schedule({SignalEventKind::DoubleBlink, 14 * kSec}, nullptr));
    const Stream s = run(model, 0, 18 * kSec);

    EXPECT_EQ(wink.endNs - wink.startNs, 500 * kMs);
    const double open = s.meanIn(0, 1500 * kMs);
    EXPECT_NEAR(open, w.wornBaseline, 40);
    // A wink is longer and stronger than a blink.
    const int winkRise = s.maxIn(wink.startNs, wink.endNs) - static_cast<int>(open);
    const int blinkRise = s.maxIn(blink.startNs, blink.endNs) - static_cast<int>(open);
    EXPECT_GT(winkRise, 180);
    EXPECT_GT(blinkRise, 50);
    EXPECT_GT(winkRise, blinkRise + 60);
    // The blinks of a deliberate double blink are firmer than a spontaneous one.
    EXPECT_GT(s.maxIn(14 * kSec, 16 * kSec) - static_cast<int>(open), blinkRise * 1.05);
    // The eye stays up at the screen for the length of its label, then returns.
    EXPECT_NEAR(s.meanIn(look.startNs + 500 * kMs, look.endNs - 200 * kMs), open + w.lookShift, 30);
    EXPECT_NEAR(s.meanIn(look.endNs + 800 * kMs, look.endNs + 1800 * kMs), open, 30);

    std::vector<std::string> names;
    for (const Label& l : s.labels) names.push_back(labelName(l.kind));
    EXPECT_EQ(names, (std::vector<std::string>{"WINK", "BLINK", "LOOK_AT_SCREEN",
                                               "LOOK_AWAY_FROM_SCREEN", "DOUBLE_BLINK"}));
}

TEST(EyeSignalModelTest, DonAndDoffMoveBetweenTheLevelsAndGateEyeEvents) {
    WearerProfile w = quietWearer();
    w.offHeadLevel = 150;
    EyeSignalModel model(w, 4, 0, false);
    model.setSpontaneous(false);
    std::string why;
    EXPECT_FALSE(model.schedule({SignalEventKind::Wink, 1 * kSec}, &why));
    EXPECT_EQ(why, "the device is not on the head then");
    EXPECT_FALSE(model.schedule({SignalEventKind::Doff, 1 * kSec}, &why));
    Label don;
    ASSERT_TRUE(model.schedule({SignalEventKind::Don, 2 * kSec}, &why, &don));
    // A wink cannot start while the device is still moving onto the face.
    EXPECT_FALSE(model.schedule({SignalEventKind::Wink, don.endNs - kMs}, &why));
    EXPECT_FALSE(model.schedule({SignalEventKind::Don, don.endNs + kSec}, &why));
    EXPECT_TRUE(model.schedule({SignalEventKind::Wink, don.endNs + kSec, 400 * kMs}, &why));
    EXPECT_FALSE(model.schedule({SignalEventKind::Blink, don.endNs + 1200 * kMs}, &why));
    EXPECT_EQ(why, "overlaps another gesture");
    ASSERT_TRUE(model.schedule({SignalEventKind::Doff, 8 * kSec}, &why));
    EXPECT_FALSE(model.wornAt(9 * kSec + 100 * kMs));
    EXPECT_TRUE(model.wornAt(5 * kSec));

    const Stream s = run(model, 0, 12 * kSec);
    EXPECT_NEAR(s.meanIn(0, 1900 * kMs), 150, 40);
    EXPECT_NEAR(s.meanIn(don.endNs + 2 * kSec, 7 * kSec), 1200, 40);
    EXPECT_NEAR(s.meanIn(10 * kSec, 12 * kSec), 150, 40);
    // The past is closed.
    EXPECT_FALSE(model.schedule({SignalEventKind::Blink, 11 * kSec}, &why));
}

TEST(EyeSignalModelTest, SameSeedSameStreamAndEventsDoNotShiftTheNoise) {
    const WearerProfile w = WearerProfile::draw(99);
    EyeSignalModel a(w, 8, 0, true), b(w, 8, 0, true), c(w, 9, 0, true);
    const Stream sa = run(a, 0, 30 * kSec);
    const Stream sb = run(b, 0, 30 * kSec);
    const Stream sc = run(c, 0, 30 * kSec);
    EXPECT_EQ(sa.v, sb.v);
    EXPECT_NE(sa.v, sc.v);

    // A scripted event late in the stream leaves everything before it alone.
    EyeSignalModel d(w, 8, 0, true);
    d.schedule({SignalEventKind::HeadMotion, 25 * kSec, kSec}, nullptr);
    const Stream sd = run(d, 0, 30 * kSec);
    const size_t early =
            std::count_if(sa.t.begin(), sa.t.end(), [](int64_t t) { return t < 25 * kSec; });
    EXPECT_TRUE(std::equal(sa.v.begin(), sa.v.begin() + early, sd.v.begin()));
    EXPECT_NE(sa.v, sd.v);
}

TEST(SampleClockTest, StepsAtThirtyTwoHertzWithBoundedJitterAndRareGaps) {
    SampleClock clock(1000, 100, 1.0, 3600.0 * 32 / 50, 1);  // one sample in fifty lost
    int64_t last = clock.next();
    int gaps = 0;
    double sum = 0;
    const int n = 5000;
    for (int i = 0; i < n; ++i) {
        const int64_t t = clock.next();
        const int64_t step = t - last;
        ASSERT_GT(step, 31250000 - 9000000);
        ASSERT_LT(step, 2 * 31250000 + 9000000);
        if (step > 45000000) ++gaps;
        sum += step;
        last = t;
    }
    EXPECT_GT(gaps, n / 100);
    EXPECT_LT(gaps, n / 25);
    EXPECT_NEAR(sum / n, 31250000 * (1 + 1.0 / 50), 400000);
}

}  // namespace
}  // namespace signal
}  // namespace velto
