#include "tools/signal/WearerProfile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velto {
namespace signal {
namespace {

TEST(WearerProfileTest, DrawnWearersStayInsideThePlausibleRanges) {
    double minBase = 1e9, maxBase = 0;
    int falling = 0;
    int variants[WearerProfile::kVariants] = {};
    for (uint64_t seed = 0; seed < 2000; ++seed) {
        const WearerProfile w = WearerProfile::draw(seed);
        ASSERT_GE(w.wornBaseline, 450);
        ASSERT_LE(w.wornBaseline, 2500);
        ASSERT_GE(w.offHeadLevel, 50);
        ASSERT_LE(w.offHeadLevel, 350);
        ASSERT_GE(w.blinkRatePerMin, 6);
        ASSERT_LE(w.blinkRatePerMin, 30);
        ASSERT_GE(w.blinkMs, 100);
        ASSERT_LE(w.blinkMs, 400);
        ASSERT_GE(w.winkMs, 300);
        ASSERT_LE(w.winkMs, 800);
        // A wink is stronger than the same wearer's blink.
        ASSERT_GT(w.winkAmplitude, w.blinkAmplitude * 1.2) << seed;
        ASSERT_GE(std::abs(w.lookShift), 30);
        ASSERT_LE(std::abs(w.lookShift), 300);
        falling += w.lookShift < 0;
        ++variants[static_cast<int>(w.variant)];
        minBase = std::min(minBase, w.wornBaseline);
        maxBase = std::max(maxBase, w.wornBaseline);
    }
    // The whole range is used, not one corner of it.
    EXPECT_LT(minBase, 480);
    EXPECT_GT(maxBase, 2400);
    // Readings fall at the display for a good share of wearers; every
    // variant is drawn about as often as the others.
    EXPECT_GT(falling, 600);
    EXPECT_LT(falling, 1000);
    for (int n : variants) EXPECT_NEAR(n, 2000 / WearerProfile::kVariants, 120);
    EXPECT_NE(WearerProfile::draw(1).describe(), WearerProfile::draw(2).describe());
}

TEST(WearerProfileTest, FieldsArePinnedByNameWithinTheirRange) {
    WearerProfile w;
    EXPECT_TRUE(w.set("baseline", 1234));
    EXPECT_EQ(w.wornBaseline, 1234);
    EXPECT_TRUE(w.set("look-shift", -80));
    EXPECT_EQ(w.lookShift, -80);
    EXPECT_FALSE(w.set("baseline", 20000));
    EXPECT_FALSE(w.set("blink-rate", -1));
    EXPECT_FALSE(w.set("noise", std::numeric_limits<double>::quiet_NaN()));
    EXPECT_FALSE(w.set("shoe-size", 4));
    EXPECT_EQ(w.wornBaseline, 1234);
    EXPECT_NE(w.describe().find("baseline=1234 "), std::string::npos);
}

}  // namespace
}  // namespace signal
}  // namespace velto
