// gazectl, the command-line client, against the simulator.
#include <stdio.h>

#include <thread>

#include "tests/e2e/E2eSupport.h"

namespace velto {
namespace {

std::string run(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char buffer[256];
    while (fgets(buffer, sizeof(buffer), pipe) != nullptr) out += buffer;
    pclose(pipe);
    return out;
}

TEST(Gazectl, WatchPrintsEventsAndDumpPrintsTheState) {
    hubsim::HubSimProcess sim;
    std::string error;
    ASSERT_TRUE(sim.start(e2e::scenario("wearer baseline 1200\n", 4), &error)) << error;
    const std::string gazectl = std::string(VELTO_GAZECTL) + " --root " + sim.root() + " --serial G1 --log " +
                                sim.root() + "/gazectl.log ";

    std::thread wearer([&] {
        usleep(800000);
        e2e::waitFor([&] { return sim.command("doff").compare(0, 2, "OK") == 0; });
    });
    const std::string watched = run(gazectl + "watch DON --seconds 3 2>&1");
    wearer.join();
    EXPECT_NE(std::string::npos, watched.find("watching DON")) << watched;
    EXPECT_NE(std::string::npos, watched.find("  DOFF\n")) << watched;

    const std::string dump = run(gazectl + "dump");
    EXPECT_NE(std::string::npos, dump.find("GazeService version 0.12.1")) << dump;
    EXPECT_NE(std::string::npos, dump.find("Module: DonDoffModule"));

    EXPECT_NE(std::string::npos, run(gazectl + "watch NOT_A_GESTURE --seconds 1 2>&1").find("unknown gesture"));
}

}  // namespace
}  // namespace velto
