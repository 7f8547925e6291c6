#include "tools/signal/RecordingSession.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/signal/LabelFile.h"
#include "tools/signal/Recording.h"

namespace velto {
namespace signal {
namespace {

const int64_t kSec = 1000000000;

RecordingSession::Result make(uint64_t seed, double minutes) {
    return RecordingSession::generate(WearerProfile::draw(seed), seed, 50 * kSec,
                                      static_cast<int64_t>(minutes * 60 * kSec), {"h"}, {"l"});
}

TEST(RecordingSessionTest, IsDeterministicAndStartsWithTheThreeCalibrations) {
    const RecordingSession::Result a = make(5, 6);
    const RecordingSession::Result b = make(5, 6);
    EXPECT_EQ(a.recording, b.recording);
    EXPECT_EQ(a.labels, b.labels);
    EXPECT_NE(a.recording, make(6, 6).recording);

    std::vector<Label> labels;
    ParseError error;
    ASSERT_TRUE(LabelFile::parse(a.labels, &labels, &error)) << error.message;
    const Label* spans[3] = {nullptr, nullptr, nullptr};
    for (const Label& l : labels) {
        if (l.kind == LabelKind::CalibrateDonDoff) spans[0] = &l;
        if (l.kind == LabelKind::CalibrateWink) spans[1] = &l;
        if (l.kind == LabelKind::CalibrateLookAtScreen) spans[2] = &l;
    }
    ASSERT_TRUE(spans[0] && spans[1] && spans[2]);
    EXPECT_LT(spans[0]->endNs, spans[1]->startNs);
    EXPECT_LT(spans[1]->endNs, spans[2]->startNs);
    EXPECT_LT(spans[2]->endNs, 50 * kSec + 90 * kSec);
    auto countIn = [&](const Label& span, LabelKind kind) {
        int n = 0;
        for (const Label& l : labels)
            if (l.kind == kind && l.startNs >= span.startNs && l.endNs <= span.endNs) ++n;
        return n;
    };
    EXPECT_EQ(countIn(*spans[0], LabelKind::Don), 2);
    EXPECT_EQ(countIn(*spans[0], LabelKind::Doff), 1);
    EXPECT_EQ(countIn(*spans[1], LabelKind::Wink), 3);
    EXPECT_EQ(countIn(*spans[2], LabelKind::LookAtScreen), 3);
    EXPECT_EQ(countIn(*spans[2], LabelKind::LookAwayFromScreen), 3);
}

TEST(RecordingSessionTest, RecordingIsAValidLogWithGesturesAfterCalibration) {
    const RecordingSession::Result r = make(21, 20);
    std::vector<RecordedSample> samples;
    ParseError error;
    ASSERT_TRUE(Recording::parse(r.recording, &samples, nullptr, &error)) << error.message;
    ASSERT_EQ(static_cast<int64_t>(samples.size()), r.samples);
    EXPECT_NEAR(static_cast<double>(samples.size()), 20 * 60 * 32, 20 * 60 * 32 * 0.01);
    for (size_t i = 1; i < samples.size(); ++i)
        ASSERT_GT(samples[i].timestampNs, samples[i - 1].timestampNs);

    // Each wink label lines up with a closure in the readings written: the
    // reading inside it rises over the open eye just before.
    const double winkAmplitude = WearerProfile::draw(21).winkAmplitude;
    auto risesAt = [&](const Label& l) {
        double before = 0, peak = 0;
        int n = 0;
        for (const RecordedSample& s : samples) {
            if (s.timestampNs >= l.startNs - 250000000 && s.timestampNs < l.startNs - 30000000)
                before += s.reading, ++n;
            if (s.timestampNs >= l.startNs && s.timestampNs <= l.endNs) peak = std::max(peak, double(s.reading));
        }
        return n > 0 && peak - before / n > 0.5 * winkAmplitude;
    };
    int winks = 0, doubles = 0, looks = 0, allWinks = 0, risen = 0;
    for (const Label& l : r.labelList) {
        if (l.kind == LabelKind::Wink) ++allWinks, risen += risesAt(l);
        if (l.startNs < 50 * kSec + 120 * kSec) continue;
        winks += l.kind == LabelKind::Wink;
        doubles += l.kind == LabelKind::DoubleBlink;
        looks += l.kind == LabelKind::LookAtScreen;
    }
    // The wearer's rates are drawn from [0.15, 0.5] and [0.5, 2] per minute.
    EXPECT_GE(winks, 1);
    EXPECT_GE(doubles, 1);
    EXPECT_GE(looks, 5);
    EXPECT_GE(risen, allWinks * 9 / 10);
}

}  // namespace
}  // namespace signal
}  // namespace velto
