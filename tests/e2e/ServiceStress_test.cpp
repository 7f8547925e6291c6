// Client threads call everything the service offers, in every order, while
// the simulator streams at 16x; a watchdog turns a deadlock into a failure.
// The sensor runs with hub recovery, as a platform service should: the plain
// driver's blocking read can wait for good when a master-enable pause and a
// data listener's streaming off and on meet in one turn of its event thread
// (the hub, paused, never sends the packet the read waits for).
#include <stdlib.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tests/e2e/E2eSupport.h"
#include "tests/harness/Listeners.h"

namespace velto {
namespace {

typedef GazeServiceInterface G;

TEST(ServiceStress, ClientThreadsNeverDeadlockWhileTheHubStreams) {
    hubsim::HubSimProcess sim;
    hubsim::HubSimProcess::Options options = e2e::scenario("seed 5\nwearer baseline 1300\nwearer blink-rate 25\n", 16);
    options.extraArgs = {"--gaze-etc", VELTO_E2E_DETECTORS};
    e2e::startHub(&sim, options);
    setenv("VELTOGAZE_SERIAL", "H0001", 1);
    VeltohubProximitySensor::setHubRecoveryEnabled(true);
    GazeService* service = GazeService::getInstance();
    android::sp<test::GestureRecorder> client = new test::GestureRecorder();
    service->setGazeListener(client);
    ASSERT_TRUE(service->start());

    const G::EyeGesture gestures[] = {G::WINK, G::DOUBLE_BLINK, G::DON, G::DOFF, G::LOOK_AT_SCREEN};
    std::atomic<bool> stop{false};
    std::atomic<long> calls{0};
    auto worker = [&](int seed, int role) {
        std::mt19937 random(seed);
        while (!stop.load()) {
            const G::EyeGesture g = gestures[random() % 5];
            switch (role) {
                case 0:  // detectors
                    if (random() % 2 == 0) {
                        service->startGestureDetector(g, random() % 3 == 0, random() % 4 == 0 ? 500 : -1);
                    } else {
                        service->stopGestureDetector(g);
                    }
                    service->isGestureDetectorRunning(g);
                    break;
                case 1:  // calibrations
                    if (service->startCalibrationIntervalForGesture(g)) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
                        service->isCalibrationCompleteForGesture(g);
                        service->endCalibrationIntervalForGesture(g);
                        if (random() % 3 == 0) service->applyAndSaveCalibrationForGesture(g);
                        if (random() % 5 == 0) service->loadCalibrationForGesture(g);
                    }
                    if (random() % 7 == 0) service->clearCalibrationForGesture(g);
                    break;
                case 2:  // logging and the master enable
                    if (random() % 2 == 0) {
                        service->startLogging();
                    } else {
                        service->stopLogging();
                    }
                    if (random() % 10 == 0) service->setMasterEnable(false);
                    if (random() % 3 == 0) service->setMasterEnable(true);
                    service->isLogging();
                    break;
                default: {  // dumps and queries
                    android::String8 out;
                    service->dump(out);
                    EXPECT_NE(std::string::npos, std::string(out.string()).find("GazeService version 0.12.1"));
                    service->isRunning();
                    service->isGestureSupported(g);
                    service->start();
                    break;
                }
            }
            calls.fetch_add(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 5));
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) threads.emplace_back(worker, 100 + i, i % 4);
    std::this_thread::sleep_for(std::chrono::seconds(6));
    stop.store(true);
    // Watchdog: every thread must come back; a deadlock aborts the process,
    // which fails the test instead of hanging the suite.
    std::atomic<bool> joined{false};
    std::thread alarm([&] {
        for (int i = 0; i < 600 && !joined.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (!joined.load()) {
            fprintf(stderr, "deadlock: client threads did not return within 60 s\n");
            abort();
        }
    });
    for (std::thread& t : threads) t.join();
    joined.store(true);
    alarm.join();
    EXPECT_GT(calls.load(), 200);

    // The service still works afterwards. A don/doff calibration that one
    // of the threads happened to complete may hold thresholds under which
    // this wearer never counts as worn, so the hub gets its defaults back.
    service->setMasterEnable(true);
    service->stop();
    EXPECT_FALSE(service->isLogging());
    unlink((sim.root() + "/data/system/gaze/gaze_params.txt").c_str());
    ASSERT_TRUE(service->start());
    EXPECT_TRUE(service->clearCalibrationForGesture(G::DON));
    const int before = static_cast<int>(client->size());
    ASSERT_TRUE(service->startGestureDetector(G::DON, false, -1));
    // The hub's detector, enabled again, reports the worn device as donned.
    if (!e2e::waitFor([&] { return static_cast<int>(client->size()) > before; })) {
        android::String8 out;
        service->dump(out);
        ADD_FAILURE() << "no don/doff event after the client threads; the service's dump:\n" << out.string();
    }
    service->stop();
}

}  // namespace
}  // namespace velto
