#include "tools/gazectl/LevelCheck.h"

#include <gtest/gtest.h>

#include <cmath>

namespace velto {
namespace gazectl {
namespace {

// `seconds` of a level at 32 Hz with a deterministic wobble of +-amplitude.
void append(std::vector<float>* v, float level, double seconds, float amplitude = 5) {
    const size_t n = static_cast<size_t>(seconds * 32);
    for (size_t i = 0; i < n; ++i) v->push_back(level + amplitude * std::sin(static_cast<float>(v->size()) * 1.7f));
}

// Blinks every 2 s: 6 samples 300 above the level.
void appendBlinking(std::vector<float>* v, float level, double seconds) {
    for (double t = 0; t < seconds; t += 2) {
        append(v, level, std::min(2.0, seconds - t) - 6.0 / 32);
        append(v, level + 300, 6.0 / 32, 0);
    }
}

LevelCheck::Rules donRules() {
    LevelCheck::Rules r;
    r.minSeparation = 100;
    r.lowerLevelBelow = 450;
    r.orUpperTimesLower = 2;
    return r;
}

TEST(LevelCheck, DonDoffNeedsAnOffLevelAndAWornLevelEachHeld) {
    std::vector<float> good;
    appendBlinking(&good, 1200, 4);
    append(&good, 150, 4);
    LevelCheck::Result r = LevelCheck::analyze(good, donRules());
    EXPECT_TRUE(r.ok) << r.reason;
    EXPECT_NEAR(r.lower, 150, 6);
    EXPECT_NEAR(r.upper, 1200, 6);
    EXPECT_GE(r.upperHeldSeconds, 3.5) << "blinks inside the worn level do not break it";

    // Never taken off: blinks give a second "level" that is never held.
    std::vector<float> worn;
    appendBlinking(&worn, 1200, 8);
    r = LevelCheck::analyze(worn, donRules());
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.reason.find("held only"), std::string::npos) << r.reason;

    // Two held levels, both on the head (a look up, a slipped device).
    std::vector<float> twoWorn;
    append(&twoWorn, 1000, 4);
    append(&twoWorn, 1300, 4);
    r = LevelCheck::analyze(twoWorn, donRules());
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.reason.find("on the head"), std::string::npos) << r.reason;

    // Taken off only for a moment.
    std::vector<float> brief;
    append(&brief, 1200, 6);
    append(&brief, 150, 0.5);
    append(&brief, 1200, 2);
    EXPECT_FALSE(LevelCheck::analyze(brief, donRules()).ok);
}

TEST(LevelCheck, LookAtScreenLevelsMustStandOutOfTheNoise) {
    LevelCheck::Rules rules;
    rules.minSeparation = 10;
    std::vector<float> looks;
    append(&looks, 900, 2);
    append(&looks, 1020, 3);
    append(&looks, 900, 2);
    append(&looks, 1020, 3);
    EXPECT_TRUE(LevelCheck::analyze(looks, rules).ok);

    // Noise of +-40 around one level: k-means still finds two "levels".
    std::vector<float> noise;
    append(&noise, 900, 10, 40);
    LevelCheck::Result r = LevelCheck::analyze(noise, rules);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.reason.find("one level"), std::string::npos) << r.reason;

    std::vector<float> tooShort;
    append(&tooShort, 900, 1.5);
    EXPECT_NE(LevelCheck::analyze(tooShort, rules).reason.find("only 1.5 s"), std::string::npos);
}

TEST(LevelCheck, LongestHeldForgivesShortGapsOnly) {
    const std::vector<bool> m = {true, true, false, false, true, true, true, false, false, false, true};
    EXPECT_EQ(LevelCheck::longestHeld(m, 0), 3u);
    EXPECT_EQ(LevelCheck::longestHeld(m, 2), 7u);
    EXPECT_EQ(LevelCheck::longestHeld(m, 3), 11u);
    EXPECT_EQ(LevelCheck::longestHeld({}, 3), 0u);
}

}  // namespace
}  // namespace gazectl
}  // namespace velto
