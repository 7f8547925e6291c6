#include "tools/hubsim/Simulation.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace velto {
namespace hubsim {
namespace {

const int64_t kSec = 1000000000;

Scenario parse(const std::string& text) {
    Scenario s;
    signal::ParseError error;
    EXPECT_TRUE(ScenarioParser::parse(text, &s, &error)) << error.message;
    return s;
}

std::string attr(Simulation& sim, const char* name) {
    std::string v;
    sim.hub().read(name, &v);
    return v;
}

TEST(SimulationTest, ScriptedDonReachesTheHubDetectorAndItsLabelIsInHubTime) {
    Simulation sim(parse("wearer baseline 1000\nwearer off-level 150\nstart off\nspontaneous off\n"
                         "at 2s don\nat 6s doff\n"),
                   FirmwareImage::make(1, 0));
    sim.hub().write("pause", "0");
    sim.hub().write("don_doff_enable", "1");
    sim.advanceTo(1 * kSec);
    EXPECT_EQ(attr(sim, "don_doff"), "0\n");
    sim.advanceTo(4 * kSec);
    EXPECT_EQ(attr(sim, "don_doff"), "1\n");
    sim.advanceTo(8 * kSec);
    EXPECT_EQ(attr(sim, "don_doff"), "0\n");
    EXPECT_EQ(sim.hub().interruptCount(Interrupt::DonDoff), 2u);

    std::vector<signal::Label> labels;
    sim.takeLabels(&labels);
    ASSERT_EQ(labels.size(), 2u);
    EXPECT_EQ(labels[0].kind, signal::LabelKind::Don);
    EXPECT_EQ(labels[0].startNs, 2 * kSec + 1 + 1000000000);  // hub clock starts at 1 s
    EXPECT_EQ(labels[1].kind, signal::LabelKind::Doff);
}

TEST(SimulationTest, ControlCommandsDriveTheWearerAndAnswerQueries) {
    Simulation sim(parse("wearer baseline 1000\nspontaneous off\n"), FirmwareImage::make(1, 0));
    sim.advanceTo(kSec);
    EXPECT_EQ(sim.control("ping"), "OK pong");
    EXPECT_EQ(sim.control("now"), "OK 2000000000");
    EXPECT_EQ(sim.control("wink 500ms"), "OK 2000000001 2500000001");
    EXPECT_EQ(sim.control("blink"), "ERR blink not possible: overlaps another gesture");
    EXPECT_EQ(sim.control("don"), "ERR don not possible: the device is already on");
    EXPECT_EQ(sim.control("sneeze"), "ERR unknown action 'sneeze'");
    EXPECT_EQ(sim.control("set don_threshold 600"), "OK");
    EXPECT_EQ(sim.control("set don_threshold x"), "ERR set don_threshold refused (errno 22)");
    EXPECT_EQ(sim.control("get don_threshold"), "OK 600");
    EXPECT_EQ(sim.control("writes don_threshold"), "OK 600 x");
    EXPECT_EQ(sim.control("get nosuch"), "ERR cannot read nosuch");
    sim.wakeLocks().lock("Veltohub_ProxData_WakeLock\n");
    sim.wakeLocks().lock("other");
    EXPECT_EQ(sim.control("wakelocks"), "OK Veltohub_ProxData_WakeLock other");
    EXPECT_EQ(sim.control("fault eio pause 1"), "OK");
    std::string v;
    EXPECT_EQ(sim.hub().read("pause", &v), EIO);
    EXPECT_EQ(sim.control("quit"), "OK");
    EXPECT_TRUE(sim.quitRequested());
}

TEST(SimulationTest, ReplayKeepsTheRecordedTimeStampsAndReadings) {
    std::vector<signal::RecordedSample> rec;
    for (int i = 0; i < 10; ++i)
        rec.push_back({50 * kSec + i * 31250000LL, static_cast<uint16_t>(600 + i), false});
    Simulation sim(parse("hub set pause 0\nhub set passthru_enable 1\n"), FirmwareImage::make(1, 0),
                   rec, {{50 * kSec, 51 * kSec, signal::LabelKind::Blink}});
    sim.advanceTo(10 * kSec);
    EXPECT_TRUE(sim.replayFinished());
    std::vector<uint8_t> bytes;
    ASSERT_EQ(sim.hub().takePackets(64, &bytes), 10u);
    uint64_t ts = 0;
    for (int b = 7; b >= 0; --b) ts = (ts << 8) | bytes[90 + b];
    EXPECT_EQ(ts, static_cast<uint64_t>(rec[9].timestampNs));
    EXPECT_EQ(bytes[98] | (bytes[99] << 8), 609);
    EXPECT_EQ(sim.control("blink"), "ERR no wearer while replaying a recording");
    std::vector<signal::Label> labels;
    sim.takeLabels(&labels);
    ASSERT_EQ(labels.size(), 1u);
    EXPECT_EQ(labels[0].startNs, 50 * kSec);
}

TEST(SimulationTest, ScenarioSetsTheHubsVersions) {
    Simulation old(parse("hub version 0.9\nhub bootloader 3\n"), FirmwareImage::make(1, 0));
    EXPECT_EQ(attr(old, "version"), "0.9\n");
    EXPECT_EQ(attr(old, "bootloader_version"), "3\n");
    Simulation absent(parse("hub version none\n"), FirmwareImage::make(1, 0));
    EXPECT_FALSE(absent.hub().hasAttribute("version"));
    // A scenario action that cannot run becomes a warning naming its line.
    Simulation warn(parse("start off\nat 1s wink\n"), FirmwareImage::make(1, 0));
    warn.advanceTo(2 * kSec);
    std::vector<std::string> w;
    warn.takeWarnings(&w);
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0], "scenario line 2: wink not possible: the device is not on the head then");
}

TEST(SimulationTest, EveryShippedScenarioRunsToItsEndWithoutAWarning) {
    DIR* d = opendir(VELTO_HUBSIM_SCENARIOS);
    ASSERT_NE(d, nullptr) << VELTO_HUBSIM_SCENARIOS;
    int files = 0;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".txt") != 0) continue;
        ++files;
        std::ifstream in(std::string(VELTO_HUBSIM_SCENARIOS) + "/" + name);
        std::stringstream text;
        text << in.rdbuf();
        Scenario scenario;
        signal::ParseError error;
        ASSERT_TRUE(ScenarioParser::parse(text.str(), &scenario, &error)) << name << ":" << error.line;
        Simulation sim(scenario, FirmwareImage::make(4, 2));
        const int64_t last = scenario.actions.empty() ? 0 : scenario.actions.back().atNs;
        sim.advanceTo(last + 5 * kSec);
        std::vector<std::string> warnings;
        sim.takeWarnings(&warnings);
        EXPECT_TRUE(warnings.empty()) << name << ": " << warnings[0];
    }
    closedir(d);
    EXPECT_GE(files, 5);
}

TEST(WakeLocksTest, KernelSemanticsOfTakeAndRelease) {
    WakeLocks locks;
    EXPECT_EQ(locks.lock("a 1000\n"), 0);
    EXPECT_EQ(locks.lock("b"), 0);
    EXPECT_EQ(locks.lock("a"), 0);
    EXPECT_EQ(locks.listText(true), "a b\n");
    EXPECT_EQ(locks.unlock("a\n"), 0);
    EXPECT_EQ(locks.unlock("a"), 0);  // releasing twice is harmless
    EXPECT_EQ(locks.unlock("never"), EINVAL);
    EXPECT_EQ(locks.lock("\n"), EINVAL);
    EXPECT_EQ(locks.listText(true), "b\n");
    EXPECT_EQ(locks.listText(false), "a\n");
    EXPECT_TRUE(locks.isHeld("b"));
}

}  // namespace
}  // namespace hubsim
}  // namespace velto
