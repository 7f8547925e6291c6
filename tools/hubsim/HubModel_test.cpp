#include "tools/hubsim/HubModel.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace velto {
namespace hubsim {
namespace {

const int64_t kPeriod = 31250000;

std::string get(HubModel& hub, const char* name) {
    std::string v;
    EXPECT_EQ(hub.read(name, &v), 0) << name;
    return v;
}

// Feeds `n` samples of `reading` at 32 Hz after `*t`.
void feed(HubModel& hub, int64_t* t, int n, uint16_t reading) {
    for (int i = 0; i < n; ++i) {
        *t += kPeriod;
        hub.onSample(*t, reading);
    }
}

struct Decoded {
    uint64_t ts;
    uint16_t value;
};

std::vector<Decoded> take(HubModel& hub, size_t max) {
    std::vector<uint8_t> bytes;
    hub.takePackets(max, &bytes);
    std::vector<Decoded> out;
    for (size_t i = 0; i + 10 <= bytes.size(); i += 10) {
        uint64_t ts = 0;
        for (int b = 7; b >= 0; --b) ts = (ts << 8) | bytes[i + b];
        out.push_back({ts, static_cast<uint16_t>(bytes[i + 8] | (bytes[i + 9] << 8))});
    }
    return out;
}

TEST(HubModelTest, AttributesReadAndWriteAsTextLikeKernelAttributes) {
    HubModel hub(HubConfig{});
    EXPECT_EQ(get(hub, "version"), "1.0\n");
    EXPECT_EQ(get(hub, "pause"), "1\n");  // the hub starts paused
    EXPECT_EQ(hub.write("don_threshold", "600\n"), 0);
    EXPECT_EQ(get(hub, "don_threshold"), "600\n");
    EXPECT_EQ(hub.write("don_threshold", "abc"), EINVAL);
    EXPECT_EQ(hub.write("don_threshold", " 5"), EINVAL);
    EXPECT_EQ(hub.write("don_threshold", ""), EINVAL);
    EXPECT_EQ(hub.write("don_threshold", "65536"), ERANGE);
    EXPECT_EQ(hub.write("detector_gain", "3"), EINVAL);
    EXPECT_EQ(hub.write("current_timestamp", "5"), EACCES);
    std::string v;
    EXPECT_EQ(hub.read("update_fw_enable", &v), EACCES);
    EXPECT_EQ(hub.read("no_such", &v), ENOENT);
    EXPECT_EQ(get(hub, "don_threshold"), "600\n");  // refused writes change nothing
    EXPECT_EQ(hub.writesTo("don_threshold"),
              (std::vector<std::string>{"600", "abc", " 5", "", "65536"}));

    HubConfig absent;
    absent.hasVersion = false;
    HubModel noVersion(absent);
    EXPECT_FALSE(noVersion.hasAttribute("version"));
    EXPECT_EQ(noVersion.read("version", &v), ENOENT);
}

TEST(HubModelTest, PausedHubNeitherSamplesNorStreams) {
    HubModel hub(HubConfig{});
    int64_t t = 0;
    ASSERT_EQ(hub.write("passthru_enable", "1"), 0);
    feed(hub, &t, 10, 1000);
    EXPECT_EQ(hub.queuedPackets(), 0u);
    EXPECT_EQ(get(hub, "timer_count"), "0\n");
    ASSERT_EQ(hub.write("pause", "0"), 0);
    feed(hub, &t, 3, 1000);
    const std::vector<Decoded> p = take(hub, 64);
    ASSERT_EQ(p.size(), 3u);
    // Hub time is simulation time plus the clock's start.
    EXPECT_EQ(p[0].ts, static_cast<uint64_t>(11 * kPeriod + 1000000000));
    EXPECT_EQ(p[1].ts - p[0].ts, static_cast<uint64_t>(kPeriod));
    EXPECT_EQ(p[2].value, 1000);
    // Stopping the stream flushes what is left.
    feed(hub, &t, 2, 1000);
    ASSERT_EQ(hub.write("passthru_enable", "0"), 0);
    EXPECT_EQ(hub.queuedPackets(), 0u);
}

TEST(HubModelTest, TurningPassthroughOnQueuesTheLastConversionsFirst) {
    HubModel hub(HubConfig{});
    hub.write("pause", "0");
    int64_t t = 0;
    feed(hub, &t, 100, 700);  // not streaming: the hub keeps the last 64
    EXPECT_EQ(hub.queuedPackets(), 0u);
    ASSERT_EQ(hub.write("passthru_enable", "1"), 0);
    std::vector<Decoded> p = take(hub, 100);
    ASSERT_EQ(p.size(), 64u);
    EXPECT_EQ(p[0].ts, static_cast<uint64_t>(37 * kPeriod + 1000000000));
    for (size_t i = 1; i < p.size(); ++i) EXPECT_EQ(p[i].ts - p[i - 1].ts, static_cast<uint64_t>(kPeriod)) << i;
    feed(hub, &t, 1, 701);  // then the stream goes on
    p = take(hub, 100);
    ASSERT_EQ(p.size(), 1u);
    EXPECT_EQ(p[0].value, 701);
    // Opening the device (a flush) forgets them, as does turning passthrough off.
    ASSERT_EQ(hub.write("passthru_enable", "0"), 0);
    feed(hub, &t, 10, 700);
    hub.onDeviceOpen();
    ASSERT_EQ(hub.write("passthru_enable", "1"), 0);
    EXPECT_EQ(hub.queuedPackets(), 0u);
}

TEST(HubModelTest, FifoKeepsSixtyFourPacketsAndCountsWhatOverflows) {
    HubModel hub(HubConfig{});
    hub.write("pause", "0");
    hub.write("passthru_enable", "1");
    int64_t t = 0;
    feed(hub, &t, 70, 500);
    EXPECT_EQ(hub.queuedPackets(), 64u);
    EXPECT_EQ(hub.stats().overflows, 6u);
    EXPECT_EQ(get(hub, "error_count"), "6\n");
    const std::vector<Decoded> p = take(hub, 100);
    ASSERT_EQ(p.size(), 64u);
    EXPECT_EQ(p[0].ts, static_cast<uint64_t>(kPeriod + 1000000000));  // oldest kept
    EXPECT_EQ(hub.stats().packetsDelivered, 64u);
}

TEST(HubModelTest, DonDoffDetectorUsesThresholdsWithHysteresisAndRaisesInterrupts) {
    HubModel hub(HubConfig{});
    hub.write("pause", "0");
    hub.write("don_threshold", "600");
    hub.write("doff_threshold", "400");
    hub.write("don_max_threshold", "2000");
    int64_t t = 0;
    feed(hub, &t, 20, 1000);
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 0u);  // detection is off
    hub.write("don_doff_enable", "1");
    feed(hub, &t, 7, 1000);
    EXPECT_EQ(get(hub, "don_doff"), "0\n");  // not yet: a run of samples must agree
    feed(hub, &t, 1, 1000);
    EXPECT_EQ(get(hub, "don_doff"), "1\n");
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 1u);
    EXPECT_EQ(get(hub, "irq_status"), "1\n");
    // Between doff and don the state holds; a short dip does not count.
    feed(hub, &t, 30, 500);
    feed(hub, &t, 5, 100);
    feed(hub, &t, 3, 1000);
    EXPECT_EQ(get(hub, "don_doff"), "1\n");
    feed(hub, &t, 8, 390);
    EXPECT_EQ(get(hub, "don_doff"), "0\n");
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 2u);
    feed(hub, &t, 30, 500);  // below don: still off
    EXPECT_EQ(get(hub, "don_doff"), "0\n");
    feed(hub, &t, 30, 2500);  // above don-max: not a face
    EXPECT_EQ(get(hub, "don_doff"), "0\n");
    feed(hub, &t, 8, 700);
    feed(hub, &t, 8, 2001);  // worn, then covered
    EXPECT_EQ(get(hub, "don_doff"), "0\n");
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 4u);
}

TEST(HubModelTest, DebugFifoHoldsTheReadingsBehindADecision) {
    HubModel hub(HubConfig{});
    EXPECT_EQ(get(hub, "mcu_debug16"), "0\n");  // empty
    hub.write("pause", "0");
    hub.write("don_doff_enable", "1");
    int64_t t = 0;
    feed(hub, &t, 8, 1234);
    std::vector<std::string> words;
    for (int i = 0; i < 20; ++i) {
        const std::string w = get(hub, "mcu_debug16");
        words.push_back(w);
        if (std::stoi(w) & 0x8000) break;
    }
    ASSERT_EQ(words.size(), 8u);
    EXPECT_EQ(words[0], "1234\n");
    EXPECT_EQ(words[7], std::to_string(0x8000 | 1234) + "\n");
    EXPECT_EQ(get(hub, "mcu_debug16"), "0\n");
    hub.pushDebugWords({0, 12, 0x7FFF + 8});  // kept to 15 bits, no zero words
    EXPECT_EQ(get(hub, "mcu_debug16"), "1\n");
    EXPECT_EQ(get(hub, "mcu_debug16"), "12\n");
    EXPECT_EQ(get(hub, "mcu_debug16"), std::to_string(0x8000 | 7) + "\n");
}

TEST(HubModelTest, LowPowerWinkFlagsItsSamplesAndInterruptsWhenEnabled) {
    HubModel hub(HubConfig{});
    hub.write("pause", "0");
    hub.write("passthru_enable", "1");
    hub.write("wink_enable", "1");
    hub.write("wink_min", "150");
    hub.write("wink_max", "400");
    int64_t t = 0;
    feed(hub, &t, 40, 1000);
    feed(hub, &t, 16, 1300);  // a half-second closure of magnitude 300
    feed(hub, &t, 8, 1000);
    std::vector<Decoded> p = take(hub, 64);
    int flagged = 0;
    for (const Decoded& d : p) flagged += (d.value & 0x4000) != 0;
    EXPECT_GE(flagged, 8);
    EXPECT_LE(flagged, 12);
    EXPECT_EQ(p.back().value, 1000);
    // Without the flag enable there is no interrupt.
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 0u);
    EXPECT_EQ(get(hub, "wink"), "0\n");

    hub.write("wink_flag_enable", "1");
    // The interrupt follows the first flagged packet by one conversion, so a
    // reader that serves the device first already holds that packet.
    int closed = 0;
    bool flaggedBeforeInterrupt = false;
    while (closed < 16 && !flaggedBeforeInterrupt) {
        feed(hub, &t, 1, 1300);
        ++closed;
        for (const Decoded& d : take(hub, 64)) {
            if ((d.value & 0x4000) == 0) continue;
            flaggedBeforeInterrupt = hub.interruptCount(Interrupt::Wink) == 0;
            ASSERT_TRUE(flaggedBeforeInterrupt);
        }
    }
    ASSERT_TRUE(flaggedBeforeInterrupt);
    feed(hub, &t, 1, 1300);
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 1u);
    feed(hub, &t, 16 - closed - 1, 1300);
    feed(hub, &t, 8, 1000);
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 1u);
    EXPECT_EQ(get(hub, "wink"), "1\n");
    EXPECT_EQ(get(hub, "wink"), "0\n");  // reading re-arms it
    // At gain 1 the same closure measures 150: still in range; at gain 0, 75: too weak.
    hub.write("detector_gain", "1");
    feed(hub, &t, 16, 1300);
    feed(hub, &t, 8, 1000);
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 2u);
    hub.write("detector_gain", "0");
    feed(hub, &t, 16, 1300);
    feed(hub, &t, 8, 1000);
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 2u);
    // Too strong for wink_max, or too short (a blink): nothing.
    hub.write("detector_gain", "2");
    feed(hub, &t, 16, 1500);
    feed(hub, &t, 8, 1000);
    feed(hub, &t, 5, 1300);
    feed(hub, &t, 8, 1000);
    EXPECT_EQ(hub.interruptCount(Interrupt::Wink), 2u);
}

TEST(HubModelTest, DataPathFaultsAndClockFaults) {
    HubModel hub(HubConfig{});
    hub.write("pause", "0");
    hub.write("passthru_enable", "1");
    int64_t t = 0;
    hub.dropPackets(2);
    hub.duplicatePackets(1);
    feed(hub, &t, 4, 800);
    std::vector<Decoded> p = take(hub, 64);
    ASSERT_EQ(p.size(), 3u);  // 4 made, 2 dropped, 1 twice
    EXPECT_EQ(p[0].ts, p[1].ts);

    hub.delayPackets(10 * kPeriod);
    feed(hub, &t, 5, 800);
    EXPECT_EQ(hub.queuedPackets(), 0u);
    feed(hub, &t, 6, 800);
    EXPECT_EQ(hub.queuedPackets(), 11u);  // held back, then all at once

    take(hub, 64);
    hub.jumpClock(-2000000000LL);
    feed(hub, &t, 1, 800);
    p = take(hub, 64);
    EXPECT_EQ(p[0].ts, static_cast<uint64_t>(t + 1000000000 - 2000000000LL));

    hub.failOperations("don_threshold", 2);
    std::string v;
    EXPECT_EQ(hub.read("don_threshold", &v), EIO);
    EXPECT_EQ(hub.write("don_threshold", "5"), EIO);
    EXPECT_EQ(hub.read("don_threshold", &v), 0);

    hub.write("don_threshold", "900");
    hub.reset();
    EXPECT_EQ(get(hub, "don_threshold"), "450\n");
    EXPECT_EQ(get(hub, "pause"), "1\n");
    EXPECT_EQ(get(hub, "current_timestamp"), "1000000\n");

    hub.storm(Interrupt::DonDoff, 10, 10 * kPeriod);
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 1u);
    hub.advanceTo(t + 20 * kPeriod);
    EXPECT_EQ(hub.interruptCount(Interrupt::DonDoff), 10u);
    EXPECT_EQ(get(hub, "don_doff"), "0\n");  // nothing changed behind the storm
}

}  // namespace
}  // namespace hubsim
}  // namespace velto
