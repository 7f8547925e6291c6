// gaze_soak: the whole service for an hour of hub time against veltohub-sim
// at a high speed, with every gesture running, logging on, dumps, calibration
// cycles, master-enable toggles and a hub fault every few minutes.
//
//   gaze_soak [--hub-minutes N] [--speed X]
//
// Prints memory and descriptors at start and end, samples delivered by the
// hub against samples in the raw-data logs, and gestures detected against
// gestures made. Exits 1 when memory or descriptors grew or a sample was lost.
//
// Samples are counted in segments of a few hub minutes. Around each logging
// session the hub's data device is made to fail until the library has
// dispatched what it read: the hub's delivered count then stands still. The
// lines logged must equal the packets delivered in between, less at most one
// per clock step (the first sample of a new clock may lie before the logger's
// start on the old clock) and the packets the hub held when the session
// started (they may predate it). A loss within that allowance (at most 64 per
// session and one per step) goes unseen.
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"
#include "tools/hubsim/testing/HubSimProcess.h"

namespace velto {
namespace {

typedef GazeServiceInterface G;

class Soak {
public:
    Soak(double speed) : mSpeed(speed) {}

    bool run(int hubMinutes);

private:
    void hubSleep(double seconds) { usleep(static_cast<useconds_t>(seconds / mSpeed * 1e6)); }
    bool command(const std::string& line) {
        for (int i = 0; i < 100; ++i) {
            if (mSim.command(line).compare(0, 2, "OK") == 0) return true;
            usleep(20000);
        }
        fprintf(stderr, "soak: the simulator refused '%s'\n", line.c_str());
        return false;
    }
    long stat(const char* name) {
        const std::string stats = mSim.command("stats");
        const size_t at = stats.find(std::string(" ") + name + "=");
        return at == std::string::npos ? -1 : atol(stats.c_str() + at + strlen(name) + 2);
    }
    // Makes every read of the data device fail, so the hub keeps its packets,
    // and waits until the library has dispatched what it had read: the
    // delivered count then stands still.
    long freeze() {
        command("fault eio veltohub");
        long last = -2;
        for (long now = stat("delivered"); now != last; now = stat("delivered")) {
            last = now;
            usleep(300000);
        }
        return last;
    }
    void thaw() { command("fault eio veltohub 0"); }
    long loggedSamples();
    void gestures();
    void calibrateLookAtScreen();
    void fault(int n);

    double mSpeed;
    hubsim::HubSimProcess mSim;
    GazeService* mService = nullptr;
    android::sp<test::GestureRecorder> mClient = new test::GestureRecorder();
    int mExpected[G::NUM_EYE_GESTURES] = {};
};

long rssKb() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0) return atol(line.c_str() + 6);
    }
    return -1;
}

int openDescriptors() {
    int n = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (dir != nullptr && readdir(dir) != nullptr) ++n;
    if (dir != nullptr) closedir(dir);
    return n - 3;  // ".", ".." and the directory itself
}

long Soak::loggedSamples() {
    long lines = 0;
    const std::string dirName = mSim.root() + "/data/system/gaze";
    DIR* dir = opendir(dirName.c_str());
    while (dirent* e = dir != nullptr ? readdir(dir) : nullptr) {
        if (strncmp(e->d_name, "prox_data_", 10) != 0) continue;
        std::ifstream in(dirName + "/" + e->d_name);
        for (std::string line; std::getline(in, line);) {
            if (!line.empty() && line[0] != '#') ++lines;
        }
    }
    if (dir != nullptr) closedir(dir);
    return lines;
}

void Soak::gestures() {
    if (command("double-blink 600ms 150")) ++mExpected[G::DOUBLE_BLINK];
    hubSleep(4);
    if (command("wink 500ms 300")) ++mExpected[G::WINK];
    hubSleep(4);
    if (command("look 2s 150")) ++mExpected[G::LOOK_AT_SCREEN];
    hubSleep(5);
}

void Soak::calibrateLookAtScreen() {
    mService->stopGestureDetector(G::LOOK_AT_SCREEN);
    mService->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN);
    hubSleep(1);
    command("look 4s 150");
    hubSleep(6);
    mService->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN);
    mService->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN);
    mService->loadCalibrationForGesture(G::LOOK_AT_SCREEN);
    mService->startGestureDetector(G::LOOK_AT_SCREEN, false, -1);
}

void Soak::fault(int n) {
    static const char* const kFaults[] = {"fault reset",        "fault jump -10s",         "fault jump 30s",
                                          "fault eio veltohub 150", "fault duplicate 20", "fault late 3s",
                                          "fault storm don_doff 200 1s", "fault storm wink 200 1s",
                                          "fault eio pause 3"};
    const char* f = kFaults[n % (sizeof(kFaults) / sizeof(kFaults[0]))];
    printf("  hub fault: %s\n", f);
    command(f);
    hubSleep(4);
}

bool Soak::run(int hubMinutes) {
    hubsim::HubSimProcess::Options options;
    options.scenario = "seed 7\nwearer baseline 1200\nwearer blink-rate 12\nwearer sample-loss-per-hour 0\n";
    options.speed = mSpeed;
    std::string error;
    if (!mSim.start(options, &error)) {
        fprintf(stderr, "soak: %s\n", error.c_str());
        return false;
    }
    setenv("VELTOGAZE_ROOT", mSim.root().c_str(), 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", "0", 1);
    setenv("VELTOGAZE_SERIAL", "G1", 1);
    // As a platform service should run it: the faults below need recovery.
    VeltohubProximitySensor::setHubRecoveryEnabled(true);
    mService = GazeService::getInstance();
    mService->setGazeListener(mClient);
    if (!mService->start()) {
        fprintf(stderr, "soak: the service does not start\n");
        return false;
    }
    // First-time calibrations, then every gesture.
    mService->startCalibrationIntervalForGesture(G::WINK);
    for (int i = 0; i < 4 && !mService->isCalibrationCompleteForGesture(G::WINK); ++i) {
        hubSleep(1);
        command("wink 500ms 300");
        hubSleep(2);
    }
    mService->endCalibrationIntervalForGesture(G::WINK);
    mService->applyAndSaveCalibrationForGesture(G::WINK);
    calibrateLookAtScreen();
    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::DON}) mService->startGestureDetector(g, false, -1);
    const int winksBefore = mClient->count(G::WINK);
    printf("calibrated; running every gesture for %d minutes of hub time at speed %.0f\n", hubMinutes, mSpeed);
    fflush(stdout);

    const auto start = std::chrono::steady_clock::now();
    auto hubSeconds = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() * mSpeed;
    };
    long rssStart = -1, rssEnd = -1;
    int fdStart = -1, fdEnd = -1;
    long deliveredTotal = 0, loggedTotal = 0, stepsTotal = 0, heldTotal = 0, lostTotal = 0;
    int segment = 0, faults = 0;
    const double segmentSeconds = 300;
    while (hubSeconds() < hubMinutes * 60.0) {
        // One logging session, counted exactly.
        const long from = freeze();
        const long loggedFrom = loggedSamples();
        // The capture keeps every line: emptied per session, so that it does
        // not pass for the library's own growth.
        test::LogCapture::clear();
        mService->startLogging();
        // Packets the hub holds now may predate the logger's start; they are
        // delivered after `from` and rightly not logged.
        const long held = stat("queued");
        thaw();
        const double segmentEnd = hubSeconds() + segmentSeconds;
        double nextFault = hubSeconds() + 150, nextDump = hubSeconds() + 60;
        while (hubSeconds() < segmentEnd) {
            gestures();
            if (hubSeconds() > nextDump) {
                android::String8 out;
                mService->dump(out);
                nextDump += 60;
            }
            if (hubSeconds() > nextFault) {
                fault(faults++);
                nextFault += 150;
            }
        }
        const long to = freeze();
        mService->stopLogging();
        const long steps = static_cast<long>(test::LogCapture::count("Hub clock went back from"));
        const long logged = loggedSamples() - loggedFrom;
        thaw();
        deliveredTotal += to - from;
        loggedTotal += logged;
        stepsTotal += steps;
        heldTotal += held;
        const long missing = to - from - logged;
        if (missing < 0 || missing > steps + held) lostTotal += missing < 0 ? -missing : missing - steps - held;
        printf("segment %d: delivered %ld, logged %ld, clock steps %ld, held at start %ld\n", segment, to - from,
               logged, steps, held);
        fflush(stdout);
        // Between sessions: a master-enable toggle and a calibration cycle.
        mService->setMasterEnable(false);
        hubSleep(2);
        mService->setMasterEnable(true);
        calibrateLookAtScreen();
        if (segment++ == 0) {
            rssStart = rssKb();
            fdStart = openDescriptors();
        }
    }
    rssEnd = rssKb();
    fdEnd = openDescriptors();
    hubSleep(3);

    printf("hub time: %.0f s at speed %.0f\n", hubSeconds(), mSpeed);
    printf("RSS: %ld kB after the first segment, %ld kB at the end\n", rssStart, rssEnd);
    printf("descriptors: %d after the first segment, %d at the end\n", fdStart, fdEnd);
    printf("samples: %ld delivered, %ld logged; allowed to miss %ld first samples of a new clock and %ld held at "
           "session starts\n",
           deliveredTotal, loggedTotal, stepsTotal, heldTotal);
    const int winks = mClient->count(G::WINK) - winksBefore;
    printf("events: DOUBLE_BLINK %d of %d, WINK %d of %d, LOOK_AT_SCREEN %d of %d, DON %d\n",
           mClient->count(G::DOUBLE_BLINK), mExpected[G::DOUBLE_BLINK], winks, mExpected[G::WINK],
           mClient->count(G::LOOK_AT_SCREEN), mExpected[G::LOOK_AT_SCREEN], mClient->count(G::DON));
    mService->stop();

    bool ok = true;
    if (rssEnd > rssStart + rssStart / 10 + 2048) {
        printf("FAIL: memory grew\n");
        ok = false;
    }
    if (fdEnd > fdStart) {
        printf("FAIL: descriptors grew\n");
        ok = false;
    }
    if (lostTotal != 0) {
        printf("FAIL: %ld samples lost\n", lostTotal);
        ok = false;
    }
    if (mClient->count(G::DOUBLE_BLINK) == 0 || winks == 0 || mClient->count(G::LOOK_AT_SCREEN) == 0) {
        printf("FAIL: a gesture was never detected\n");
        ok = false;
    }
    printf(ok ? "soak passed\n" : "soak failed\n");
    return ok;
}

}  // namespace
}  // namespace velto

int main(int argc, char** argv) {
    int hubMinutes = 60;
    double speed = 20;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--hub-minutes") == 0 && i + 1 < argc) {
            hubMinutes = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--speed") == 0 && i + 1 < argc) {
            speed = atof(argv[++i]);
        } else {
            fprintf(stderr, "usage: gaze_soak [--hub-minutes N] [--speed X]\n");
            return strcmp(argv[i], "--help") == 0 ? 0 : 2;
        }
    }
    if (hubMinutes <= 0 || speed <= 0) {
        fprintf(stderr, "gaze_soak: minutes and speed must be positive\n");
        return 2;
    }
    velto::test::LogCapture::install();
    velto::Soak soak(speed);
    return soak.run(hubMinutes) ? 0 : 1;
}
