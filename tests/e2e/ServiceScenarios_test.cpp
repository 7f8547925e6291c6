// The whole service against veltohub-sim: a client as an application would
// be one, one scenario per process. The detector files are the test cascades
// of tests/e2e/detectors (the simulator installs them as the shipped ones).
#include <dirent.h>

#include <fstream>

#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tests/e2e/E2eSupport.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using e2e::value;
using e2e::waitFor;
using test::LogCapture;
typedef GazeServiceInterface G;

typedef test::GestureRecorder Client;

// Starts the simulator with the test detector files and returns the started
// service with a client listening.
GazeService* startService(hubsim::HubSimProcess* sim, const std::string& scenario, double speed,
                          const android::sp<Client>& client, const char* serial = "G0123") {
    hubsim::HubSimProcess::Options options = e2e::scenario(scenario, speed);
    options.extraArgs = {"--gaze-etc", VELTO_E2E_DETECTORS};
    e2e::startHub(sim, options);
    setenv("VELTOGAZE_SERIAL", serial, 1);
    GazeService* service = GazeService::getInstance();
    service->setGazeListener(client);
    EXPECT_TRUE(service->start());
    return service;
}

const std::string kStill = e2e::stillWearer();

bool ok(const std::string& reply) { return reply.compare(0, 2, "OK") == 0; }

// The hub streams: from now on what the wearer does reaches the detectors,
// however long a loaded machine took to run the library's queued commands.
bool streaming(hubsim::HubSimProcess& sim) {
    return waitFor([&] { return value(sim.command("get passthru_enable")) == "1"; });
}

std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> logFiles(const std::string& root) {
    std::vector<std::string> out;
    DIR* dir = opendir((root + "/data/system/gaze").c_str());
    while (dirent* e = dir != nullptr ? readdir(dir) : nullptr) {
        if (std::string(e->d_name).rfind("prox_data_", 0) == 0) out.push_back(root + "/data/system/gaze/" + e->d_name);
    }
    if (dir != nullptr) closedir(dir);
    std::sort(out.begin(), out.end());
    return out;
}

TEST(ServiceScenario, AClientGetsDonThenDoff) {
    hubsim::HubSimProcess sim;
    android::sp<Client> client = new Client();
    GazeService* service = startService(&sim, "wearer baseline 1100\nstart off\n", 8, client);
    ASSERT_TRUE(service->isGestureSupported(G::DON));
    EXPECT_TRUE(service->isGestureSupported(G::DOFF));
    ASSERT_TRUE(service->startGestureDetector(G::DOFF, false, -1));  // the shared don/doff module
    EXPECT_TRUE(service->isGestureDetectorRunning(G::DON));
    ASSERT_TRUE(waitFor([&] { return ok(sim.command("don")); }));
    ASSERT_TRUE(waitFor([&] { return client->count(G::DON) == 1; }));
    ASSERT_TRUE(waitFor([&] { return ok(sim.command("doff")); }));
    ASSERT_TRUE(waitFor([&] { return client->count(G::DOFF) == 1; }));
    EXPECT_EQ(std::vector<G::EyeGesture>({G::DON, G::DOFF}), client->gestures());
    service->stop();
    EXPECT_FALSE(service->isGestureDetectorRunning(G::DON));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get don_doff_enable")) == "0"; }));
}

TEST(ServiceScenario, ALowPowerWinkLeadsToAValidatedWinkAfterCalibration) {
    hubsim::HubSimProcess sim;
    android::sp<Client> client = new Client();
    GazeService* service = startService(&sim, kStill, 4, client);
    ASSERT_TRUE(service->isGestureSupported(G::WINK));
    EXPECT_FALSE(service->startGestureDetector(G::WINK, false, 1000));  // no timeout mode

    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::WINK));
    ASSERT_TRUE(streaming(sim));
    for (int i = 0; i < 3 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        usleep(700000);
        ASSERT_TRUE(ok(sim.command("wink 450ms 300")));
        usleep(1200000);
    }
    EXPECT_TRUE(service->isCalibrationCompleteForGesture(G::WINK)) << LogCapture::dump();
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::WINK));
    ASSERT_TRUE(service->applyAndSaveCalibrationForGesture(G::WINK));
    // The hub's own detector now looks for this wearer's winks.
    EXPECT_NE("0", value(sim.command("get wink_min")));
    EXPECT_NE("680", value(sim.command("get wink_max")));
    EXPECT_EQ(0, access((sim.root() + "/data/system/gaze/wink_calibration.txt").c_str(), F_OK));

    const int calibrationWinks = client->count(G::WINK);
    ASSERT_TRUE(service->startGestureDetector(G::WINK, false, -1));
    EXPECT_EQ("0", value(sim.command("get passthru_enable")));  // low power until the hub says wink
    usleep(500000);
    ASSERT_TRUE(ok(sim.command("wink 450ms 300")));
    ASSERT_TRUE(waitFor([&] { return client->count(G::WINK) == calibrationWinks + 1; })) << LogCapture::dump();
    EXPECT_TRUE(LogCapture::contains("onLowPowerWink() called... Switching to high power classifier..."));
    // The validation ends and the hub goes back to low power.
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get passthru_enable")) == "0"; }));
}

TEST(ServiceScenario, TheLogHoldsEveryDeliveredSampleInOrder) {
    hubsim::HubSimProcess sim;
    android::sp<Client> client = new Client();
    // Hub recovery, as gazectl runs the service: the plain driver keeps the
    // tail of its last read until the hub's next packet, which a paused hub
    // never sends.
    VeltohubProximitySensor::setHubRecoveryEnabled(true);
    GazeService* service = startService(&sim, kStill, 8, client);
    test::SampleRecorder all;  // registered first, so it sees every delivered packet
    VeltohubProximitySensor::getInstance()->addProxDataListener(&all);
    ASSERT_TRUE(service->startLogging());
    // Listeners are called in the order they came, so once this one has a
    // packet the logger has had it too.
    test::SampleRecorder afterLogger;
    VeltohubProximitySensor::getInstance()->addProxDataListener(&afterLogger);
    ASSERT_TRUE(streaming(sim));
    usleep(1500000);
    // Stop the hub's conversions, let the library drain the FIFO and pass
    // every packet it read on.
    ASSERT_TRUE(ok(sim.command("set pause 1")));
    ASSERT_TRUE(waitFor([&] { return sim.command("stats").find(" queued=0 ") != std::string::npos; }));
    const std::string stats = sim.command("stats");
    const size_t delivered = std::stoul(stats.substr(stats.find("delivered=") + 10));
    ASSERT_TRUE(waitFor([&] {
        return all.size() >= delivered && afterLogger.size() > 0 &&
               afterLogger.stamps().back() == all.stamps().back();
    })) << delivered;
    ASSERT_TRUE(service->stopLogging());
    VeltohubProximitySensor::getInstance()->removeProxDataListener(&afterLogger);
    VeltohubProximitySensor::getInstance()->removeProxDataListener(&all);

    const std::vector<std::string> files = logFiles(sim.root());
    ASSERT_EQ(1u, files.size());
    const std::vector<std::string> lines = readLines(files[0]);
    // The header's lines are GazeService.LoggingWritesAHeaderThenSamples's.
    size_t header = 0;
    while (header < lines.size() && lines[header] != "# </HEADER>") ++header;
    ASSERT_LT(header, lines.size());
    std::vector<int64_t> logged;
    for (size_t i = header + 1; i < lines.size(); ++i) {
        long long t = 0;
        int reading = 0;
        char flag = 0;
        ASSERT_EQ(3, sscanf(lines[i].c_str(), "%lld %d %c", &t, &reading, &flag)) << lines[i];
        EXPECT_NEAR(1200, reading, 10);
        logged.push_back(t);
    }
    EXPECT_GT(logged.size(), 100u);
    // From its first sample on, the log holds every packet the hub delivered,
    // in order: nothing lost between the hub and the file.
    const std::vector<int64_t> seen = all.stamps();
    ASSERT_LE(logged.size(), seen.size());
    EXPECT_TRUE(std::equal(logged.begin(), logged.end(), seen.end() - static_cast<long>(logged.size())));
}

}  // namespace
}  // namespace velto
