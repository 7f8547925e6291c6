#include "tools/hubsim/Scenario.h"

#include <gtest/gtest.h>

namespace velto {
namespace hubsim {
namespace {

TEST(ScenarioParserTest, ReadsSettingsAndTimedActions) {
    const char* text =
            "# a scenario\n"
            "seed 42\n"
            "wearer baseline 1100   # pinned\n"
            "start off\n"
            "spontaneous off\n"
            "hub version 3.1\n"
            "hub bootloader 4\n"
            "hub clock 5s\n"
            "hub set don_threshold 500\n"
            "at 2s don\n"
            "at +1.5s wink 500ms\n"
            "at 1s fault storm don_doff 20 500ms\n"
            "at 10s look 2s -80\n"
            "at 11s fault eio pause\n"
            "at 12s fault jump -250ms\n"
            "at 13s set wink_min 100\n"
            "at 14s debug 12 7\n"
            "at 15s quit\n";
    Scenario s;
    signal::ParseError error;
    ASSERT_TRUE(ScenarioParser::parse(text, &s, &error)) << error.line << ": " << error.message;
    EXPECT_EQ(s.seed, 42u);
    ASSERT_EQ(s.wearer.size(), 1u);
    EXPECT_EQ(s.wearer[0].second, 1100);
    EXPECT_FALSE(s.startWorn);
    EXPECT_FALSE(s.spontaneous);
    EXPECT_TRUE(s.hasVersionOverride);
    EXPECT_EQ(s.versionMajor * 100 + s.versionMinor, 301);
    EXPECT_EQ(s.bootloaderVersion, 4);
    EXPECT_EQ(s.clockStartNs, 5000000000);
    ASSERT_EQ(s.actions.size(), 9u);
    // Sorted by time; "+1.5s" counts from the line before.
    EXPECT_EQ(s.actions[0].action.fault, Action::Fault::Storm);
    EXPECT_EQ(s.actions[0].action.ns, 500000000);
    EXPECT_EQ(s.actions[1].atNs, 2000000000);
    EXPECT_EQ(s.actions[2].atNs, 3500000000);
    EXPECT_EQ(s.actions[2].line, 11);
    EXPECT_EQ(s.actions[2].action.event.kind, signal::SignalEventKind::Wink);
    EXPECT_EQ(s.actions[2].action.event.durationNs, 500000000);
    EXPECT_EQ(s.actions[3].action.event.amount, -80);
    EXPECT_EQ(s.actions[4].action.count, -1);
    EXPECT_EQ(s.actions[5].action.ns, -250000000);
    EXPECT_EQ(s.actions[7].action.words, (std::vector<uint16_t>{12, 7}));
    EXPECT_EQ(s.actions[8].action.type, Action::Type::Quit);
}

TEST(ScenarioParserTest, MalformedLinesAreRejectedWithTheirLineNumber) {
    const char* bad[] = {
            "at 5 wink",                  // time without unit
            "at 5s sneeze",               // unknown action
            "at 5s wink 500ms 600ms",     // two durations
            "at 5s wink -3ms",            // negative duration
            "at 5s fault eio nosuch",     // unknown attribute
            "at 5s fault drop",           // count missing
            "at 5s fault storm pause 3",  // not an interrupt
            "at 5s set pause",            // value missing
            "at 5s debug 40000",          // more than 15 bits
            "wearer shoe-size 4",         // unknown field
            "hub version 3",              // not MAJOR.MINOR
            "hub version 300.1",
            "start sideways",
            "frobnicate",
            "at -1s don",
    };
    for (const char* line : bad) {
        Scenario s;
        signal::ParseError error;
        EXPECT_FALSE(ScenarioParser::parse(std::string("seed 1\n\n") + line + "\n", &s, &error))
                << line;
        EXPECT_EQ(error.line, 3) << line;
        EXPECT_FALSE(error.message.empty()) << line;
    }
}

TEST(ScenarioParserTest, DurationsNeedAUnit) {
    const std::pair<const char*, int64_t> kGood[] = {{"250ms", 250000000}, {"2min", 120000000000}, {"7us", 7000}};
    int64_t ns = 0;
    for (const auto& g : kGood) {
        EXPECT_TRUE(ScenarioParser::parseDuration(g.first, false, &ns));
        EXPECT_EQ(ns, g.second) << g.first;
    }
    EXPECT_TRUE(ScenarioParser::parseDuration("-2s", true, &ns));
    EXPECT_EQ(ns, -2000000000);
    EXPECT_FALSE(ScenarioParser::parseDuration("-2s", false, &ns));
    EXPECT_FALSE(ScenarioParser::parseDuration("2", false, &ns));
    EXPECT_FALSE(ScenarioParser::parseDuration("s", false, &ns));
    EXPECT_FALSE(ScenarioParser::parseDuration("1e30s", false, &ns));
}

}  // namespace
}  // namespace hubsim
}  // namespace velto
