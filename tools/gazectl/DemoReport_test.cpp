#include "tools/gazectl/DemoReport.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace velto {
namespace gazectl {
namespace {

typedef GazeServiceInterface G;
constexpr int64_t kMs = 1000000;
constexpr int64_t kSec = 1000 * kMs;

// Two double blinks, a wink and a look; the service finds the first double
// blink late but in time, takes a wink for the second double blink, reports
// the look while it lasts, and reports a double blink twice.
DemoResult sampleResult() {
    const std::vector<ExpectedGesture> expected = {
            {"double-blink", G::DOUBLE_BLINK, 10 * kSec, 10 * kSec + 600 * kMs},
            {"wink 450ms", G::WINK, 14 * kSec, 14 * kSec + 450 * kMs},
            {"look 3s", G::LOOK_AT_SCREEN, 18 * kSec, 21 * kSec},
            {"double-blink", G::DOUBLE_BLINK, 25 * kSec, 25 * kSec + 600 * kMs},
    };
    const std::vector<DemoDetection> detections = {
            {G::DON, 2 * kSec},                            // before the scored period
            {G::DOUBLE_BLINK, 11 * kSec + 500 * kMs},      // 900 ms after the end: a hit
            {G::DOUBLE_BLINK, 11 * kSec + 550 * kMs},      // the same one again: false
            {G::WINK, 25 * kSec + 700 * kMs},              // in the double blink's span, wrong gesture
            {G::LOOK_AT_SCREEN, 18 * kSec + 800 * kMs},    // while the look lasts
            {G::LOOK_AT_SCREEN, 21 * kSec + 300 * kMs},    // after the wearer looked back: false
            {G::WINK, 14 * kSec + 100 * kMs},              // out of order: the service's order is not sorted
            {G::DOUBLE_BLINK, 40 * kSec},                  // after the scored period
    };
    return scoreDemo(expected, detections, 5 * kSec, 30 * kSec);
}

TEST(DemoReportTest, MatchesEachGestureOnceByKindAndCountsTheRestFalse) {
    const DemoResult r = sampleResult();
    ASSERT_EQ(4u, r.rows.size());
    EXPECT_TRUE(r.rows[0].detected);
    EXPECT_NEAR(900.0, r.rows[0].latencyMs, 1e-6);
    EXPECT_TRUE(r.rows[1].detected);
    EXPECT_NEAR(-350.0, r.rows[1].latencyMs, 1e-6);  // before the wink ended
    EXPECT_TRUE(r.rows[2].detected);
    EXPECT_NEAR(800.0, r.rows[2].latencyMs, 1e-6);  // a look counts from its start
    EXPECT_FALSE(r.rows[3].detected);
    EXPECT_EQ(3, r.detectedCount());

    ASSERT_EQ(3u, r.falseDetections.size());
    EXPECT_EQ(G::DOUBLE_BLINK, r.falseDetections[0].gesture);
    EXPECT_EQ(11 * kSec + 550 * kMs, r.falseDetections[0].hubNs);
    EXPECT_EQ(G::LOOK_AT_SCREEN, r.falseDetections[1].gesture);
    EXPECT_EQ(G::WINK, r.falseDetections[2].gesture);
}

TEST(DemoReportTest, TableJsonAndTimelineTellTheSameStory) {
    const DemoResult r = sampleResult();
    const std::string table = formatDemoTable(r, 5 * kSec);
    EXPECT_NE(std::string::npos, table.find("MISSED"));
    EXPECT_NE(std::string::npos, table.find("350 ms before it ended"));
    EXPECT_NE(std::string::npos, table.find("800 ms after it began"));
    EXPECT_NE(std::string::npos, table.find("3 of 4 gestures detected; 3 false detections"));
    EXPECT_NE(std::string::npos, table.find("DOUBLE_BLINK at 6.55 s"));

    const nlohmann::json j = nlohmann::json::parse(formatDemoJson(r, 5 * kSec, "/tmp/t.svg"));
    EXPECT_EQ(4, j["expected"]);
    EXPECT_EQ(3, j["detected"]);
    EXPECT_EQ(3u, j["false_detections"].size());
    EXPECT_EQ("/tmp/t.svg", j["timeline_svg"]);
    EXPECT_DOUBLE_EQ(5.0, j["gestures"][0]["start_s"].get<double>());
    EXPECT_EQ("start", j["gestures"][2]["latency_from"]);
    EXPECT_FALSE(j["gestures"][3]["detected"].get<bool>());
    EXPECT_FALSE(j["gestures"][3].contains("latency_ms"));

    std::vector<signal::RecordedSample> samples;
    for (int64_t t = 0; t < 32 * kSec; t += 31250000) samples.push_back({t, 1000, false});
    const std::string svg = renderDemoTimeline(r, samples, {});
    for (const char* part : {"detected (hit)", "false detection", "missed", "DOUBLE_BLINK", "LOOK_AT_SCREEN", "25 s"}) {
        EXPECT_NE(std::string::npos, svg.find(part)) << part;
    }
    // One hit line per detected gesture, across the signal and in its row.
    size_t hits = 0;
    for (size_t at = svg.find("#00a651\" stroke-width"); at != std::string::npos; at = svg.find("#00a651\" stroke-width", at + 1)) ++hits;
    EXPECT_EQ(3u, hits);
}

}  // namespace
}  // namespace gazectl
}  // namespace velto
