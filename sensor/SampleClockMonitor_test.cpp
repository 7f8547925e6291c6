#include "sensor/SampleClockMonitor.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(SampleClockMonitor, TellsJitterAndRepeatsFromStepsAndGaps) {
    SampleClockMonitor m;
    const int64_t period = 31250000;
    EXPECT_EQ(SampleClockMonitor::STEADY, m.add(10 * period));  // the first sample
    EXPECT_EQ(SampleClockMonitor::STEADY, m.add(11 * period + 5000000));
    EXPECT_EQ(SampleClockMonitor::STEADY, m.add(11 * period + 5000001));  // 1 ns on is a step
    const int64_t last = 11 * period + 5000001;
    // A duplicate and a packet one period late are ordinary and keep the clock.
    EXPECT_EQ(SampleClockMonitor::REPEATED, m.add(last));
    EXPECT_EQ(SampleClockMonitor::REPEATED, m.add(10 * period));
    EXPECT_EQ(last, m.latest());
    // Four periods back is still a repeat; more is a new clock.
    EXPECT_EQ(SampleClockMonitor::REPEATED, m.add(last - SampleClockMonitor::kBackwardStepNs));
    EXPECT_EQ(SampleClockMonitor::BACKWARD, m.add(1000000));
    EXPECT_EQ(last, m.previous());
    EXPECT_EQ(1000000, m.latest());
    // Below zero too (a clock set back past its start).
    EXPECT_EQ(SampleClockMonitor::BACKWARD, m.add(-5000000000LL));
    EXPECT_EQ(SampleClockMonitor::STEADY, m.add(-5000000000LL + period));
    EXPECT_EQ(SampleClockMonitor::FORWARD, m.add(-5000000000LL + period + SampleClockMonitor::kForwardGapNs + 1));
}

}  // namespace
}  // namespace velto
