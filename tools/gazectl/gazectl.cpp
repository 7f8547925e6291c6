// gazectl: the command-line client of the gaze service. It runs the library
// in-process, as an application would, against the hub below VELTOGAZE_ROOT
// (a device's own, or veltohub-sim's).
#include <android/log.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <thread>

#include "tools/gazectl/Demo.h"
#include "tools/gazectl/GazeClient.h"
#include "tools/hubsim/ControlClient.h"

using velto::gazectl::Demo;
using velto::gazectl::EyeGesture;
using velto::gazectl::GazeClient;
using velto::gazectl::GestureEvent;
typedef velto::GazeServiceInterface G;

namespace {

std::atomic<bool> gInterrupted{false};
FILE* gLogFile = nullptr;

// The service's log lines, to a file with their priority and tag.
void logToFile(const struct __android_logger_data* data, const char* message) {
    static const char kLevels[] = "??VDIWEF";
    const int p = data->priority;
    fprintf(gLogFile, "%c %s: %s\n", p >= 0 && p < 8 ? kLevels[p] : '?', data->tag != nullptr ? data->tag : "", message);
    fflush(gLogFile);
}

void onSignal(int) { gInterrupted.store(true); }

// Sleeps until `seconds` pass (forever when negative) or Ctrl-C.
void waitSeconds(double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!gInterrupted.load() && (seconds < 0 || std::chrono::steady_clock::now() < end)) usleep(20000);
}

bool parseGestures(const std::vector<std::string>& names, std::vector<EyeGesture>* out) {
    for (const std::string& name : names) {
        EyeGesture g;
        if (!GazeClient::parseGesture(name, &g)) {
            fprintf(stderr, "gazectl: unknown gesture '%s'\n", name.c_str());
            return false;
        }
        out->push_back(g);
    }
    return true;
}

void printEvent(const GestureEvent& e) {
    printf("%10.3f  %s\n", e.secondsSinceStart, GazeClient::name(e.gesture));
    fflush(stdout);
}

int watch(GazeClient* client, const std::vector<std::string>& names, bool oneShot, int timeoutMs, double seconds) {
    std::vector<EyeGesture> gestures;
    if (!parseGestures(names, &gestures)) return 2;
    G* service = client->service();
    if (gestures.empty()) {
        for (EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::DON, G::LOOK_AT_SCREEN}) {
            if (service->isGestureSupported(g)) gestures.push_back(g);
        }
    }
    int started = 0;
    for (EyeGesture g : gestures) {
        if (service->startGestureDetector(g, oneShot, timeoutMs)) {
            ++started;
            fprintf(stderr, "gazectl: watching %s\n", GazeClient::name(g));
        } else {
            fprintf(stderr, "gazectl: cannot start the %s detector (see the log)\n", GazeClient::name(g));
        }
    }
    if (started == 0) return 1;
    client->setPrinter(printEvent);
    waitSeconds(seconds);
    service->stop();
    return 0;
}

int calibrate(GazeClient* client, const std::string& name, double seconds) {
    EyeGesture g;
    if (!GazeClient::parseGesture(name, &g)) {
        fprintf(stderr, "gazectl: unknown gesture '%s'\n", name.c_str());
        return 2;
    }
    G* service = client->service();
    if (!service->startCalibrationIntervalForGesture(g)) {
        fprintf(stderr, "gazectl: cannot start a %s calibration (see the log)\n", name.c_str());
        return 1;
    }
    fprintf(stderr, "gazectl: calibrating %s for %.0f s...\n", GazeClient::name(g), seconds);
    waitSeconds(seconds);
    service->endCalibrationIntervalForGesture(g);
    if (!service->applyAndSaveCalibrationForGesture(g)) {
        fprintf(stderr, "gazectl: the %s calibration failed (see the log)\n", GazeClient::name(g));
        return 1;
    }
    printf("%s calibration saved\n", GazeClient::name(g));
    return 0;
}

int record(GazeClient* client, double seconds) {
    G* service = client->service();
    if (!service->startLogging()) {
        fprintf(stderr, "gazectl: cannot start logging (see the log)\n");
        return 1;
    }
    fprintf(stderr, "gazectl: recording for %.0f s into /data/system/gaze/...\n", seconds);
    waitSeconds(seconds);
    return service->stopLogging() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"gazectl: drive the gaze service: watch gestures, calibrate, record raw data, dump state"};
    app.require_subcommand(1);
    std::string root, serial;
    app.add_option("--root", root, "Directory that stands in for / (sets VELTOGAZE_ROOT)");
    app.add_option("--serial", serial, "Device serial number (sets VELTOGAZE_SERIAL; first letter = hardware revision)");
    std::string logPath;
    app.add_option("--log", logPath, "Write the service's log lines to this file (default: warnings and errors to stderr)");
    unsigned int threadDelayMs = 0;
    app.add_option("--thread-delay-ms", threadDelayMs, "Delay of the sensor thread's first turn (default 0; a device waits 15000)");

    std::vector<std::string> gestures;
    bool oneShot = false;
    int timeoutMs = -1;
    double seconds = -1;
    CLI::App* watchCmd = app.add_subcommand("watch", "Start gesture detectors and print each event");
    watchCmd->add_option("gestures", gestures, "WINK, DOUBLE_BLINK, DON, LOOK_AT_SCREEN (default: all supported)");
    watchCmd->add_flag("--one-shot", oneShot, "Stop each detector after its first event");
    watchCmd->add_option("--timeout-ms", timeoutMs, "Stop the detectors after this long (double blink and look at screen)");
    watchCmd->add_option("--seconds", seconds, "Run this long (default: until Ctrl-C)");

    std::string gesture;
    double calibrationSeconds = 10;
    CLI::App* calibrateCmd = app.add_subcommand("calibrate", "Run a calibration interval, then apply and save it");
    calibrateCmd->add_option("gesture", gesture, "WINK, DON, LOOK_AT_SCREEN")->required();
    calibrateCmd->add_option("--seconds", calibrationSeconds, "Length of the interval");

    double recordSeconds = 10;
    CLI::App* recordCmd = app.add_subcommand("record", "Write raw samples to a log under /data/system/gaze");
    recordCmd->add_option("--seconds", recordSeconds, "Length of the recording");

    app.add_subcommand("dump", "Print the service's state");

    std::string simControl;
    double speed = 1.0;
    CLI::App* demoCmd = app.add_subcommand("demo", "A guided tour on veltohub-sim (needs its control socket)");
    demoCmd->add_option("--sim-control", simControl, "The simulator's control socket")->required();
    demoCmd->add_option("--speed", speed, "The simulator's --speed");

    CLI11_PARSE(app, argc, argv);

    // The library reads these once, so they are set before its first use.
    if (!root.empty()) setenv("VELTOGAZE_ROOT", root.c_str(), 1);
    if (!serial.empty()) setenv("VELTOGAZE_SERIAL", serial.c_str(), 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", std::to_string(threadDelayMs).c_str(), 0);
    if (!logPath.empty()) {
        gLogFile = fopen(logPath.c_str(), "a");
        if (gLogFile == nullptr) {
            fprintf(stderr, "gazectl: cannot open %s\n", logPath.c_str());
            return 2;
        }
        __android_log_set_logger(logToFile);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    } else {
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    }
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);

    android::sp<GazeClient> client = new GazeClient();
    if (!client->connect()) return 1;

    if (*watchCmd) return watch(client.get(), gestures, oneShot, timeoutMs, seconds);
    if (*calibrateCmd) return calibrate(client.get(), gesture, calibrationSeconds);
    if (*recordCmd) return record(client.get(), recordSeconds);
    if (*demoCmd) {
        velto::hubsim::ControlClient sim;
        std::string error;
        if (!sim.connect(simControl, &error)) {
            fprintf(stderr, "gazectl: %s\n", error.c_str());
            return 1;
        }
        return Demo(client.get(), &sim, speed > 0 ? speed : 1.0).run();
    }
    android::String8 text;
    client->service()->dump(text);
    fputs(text.string(), stdout);
    return 0;
}
