// gazectl: the command-line client of the gaze service. It runs the library
// in-process, as an application would, against the hub below VELTOGAZE_ROOT
// (a device's own, or veltohub-sim's).
//
// Exit status: 0 success, 1 the operation failed (one line on stderr says
// why), 2 bad usage, 130 interrupted. On every way out the detectors are
// stopped, the hub is paused and not streaming, and no wake lock is held.
#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/cli/ToolCli.h"
#include "tools/gazectl/Demo.h"
#include "tools/gazectl/EventPrinter.h"
#include "tools/gazectl/GazeClient.h"
#include "tools/gazectl/GuidedCalibration.h"
#include "tools/gazectl/LogRouter.h"
#include "tools/gazectl/Status.h"
#include "sensor/VeltohubProximitySensor.h"
#include "tools/hubsim/ControlClient.h"
#include "veltoutils/Paths.h"

using namespace velto;
using namespace velto::gazectl;
typedef velto::GazeServiceInterface G;

namespace {

std::atomic<bool> gInterrupted{false};

// Ctrl-C and SIGTERM are taken by one thread that waits for them while every
// other thread blocks them. A handler would run on whichever thread the
// kernel picks, and a runtime that defers handlers (ThreadSanitizer's, for
// one) can hold it back for as long as that thread is busy elsewhere; a
// calibration then ran its whole interval as if Ctrl-C never came.
sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

void takeStopSignals() {
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        for (int count = 0;; ++count) {
            int sig = 0;
            if (sigwait(&set, &sig) != 0) continue;
            gInterrupted.store(true);
            // A second Ctrl-C while gazectl cleans up: the person wants out now.
            if (count >= 1) _exit(tools::kExitInterrupted);
        }
    }).detach();
}

int64_t nowNanos() { return systemTime(SYSTEM_TIME_MONOTONIC); }

// watch --wait: the hub went away and came back.
const int kRestart = -1;
// A restarted watch keeps the end that --seconds set for the first one; the
// monotonic clock carries over the exec.
const char kWatchEndVariable[] = "GAZECTL_WATCH_END_NS";

int64_t wallNanos() {
    struct timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

bool parseGestures(const std::vector<std::string>& names, std::vector<EyeGesture>* out, std::string* bad) {
    for (const std::string& name : names) {
        EyeGesture g;
        if (!GazeClient::parseGesture(name, &g) || g == G::DOUBLE_WINK || g == G::BLINK ||
            g == G::LOOK_AWAY_FROM_SCREEN) {
            *bad = name;
            return false;
        }
        if (g == G::DOFF) g = G::DON;  // one detector reports both
        out->push_back(g);
    }
    return true;
}

// Why a gesture the service does not offer is missing, in words to act on.
std::string whyUnsupported(EyeGesture g) {
    if (g == G::WINK) {
        return "WINK is not supported here: it needs hardware revision G or later, the first letter of the serial "
               "number; pass it with --serial (e.g. --serial G1234)";
    }
    return std::string(GazeClient::name(g)) + " is not available (its detector file is missing; see gazectl status)";
}

struct WatchOptions {
    std::vector<std::string> gestures;
    bool oneShot = false;
    int timeoutMs = -1;
    double seconds = -1;
    bool json = false;
    bool wait = false;
    int64_t endNs = INT64_MAX;  // monotonic
};

int watch(GazeClient* client, const WatchOptions& options) {
    std::vector<EyeGesture> requested;
    std::string bad;
    parseGestures(options.gestures, &requested, &bad);  // checked before connecting
    G* service = client->service();
    const bool all = requested.empty();
    if (all) requested = {G::WINK, G::DOUBLE_BLINK, G::DON, G::LOOK_AT_SCREEN};

    std::vector<EyeGesture> started, uncalibrated;
    for (EyeGesture g : requested) {
        if (!service->isGestureSupported(g)) {
            if (!all) fprintf(stderr, "gazectl: %s\n", whyUnsupported(g).c_str());
            continue;
        }
        const CalibrationState calibration = client->calibrationState(g);
        if (calibration == CalibrationState::kMissing) uncalibrated.push_back(g);
        // An uncalibrated wink or look detector cannot tell the wearer's
        // gestures; the hub's don/doff defaults still work.
        if (calibration == CalibrationState::kMissing && g != G::DON) continue;
        if (service->startGestureDetector(g, options.oneShot, g == G::DOUBLE_BLINK ? options.timeoutMs : -1)) {
            started.push_back(g);
        } else {
            fprintf(stderr, "gazectl: cannot start the %s detector (run with --verbose or --log FILE for why)\n",
                    GazeClient::name(g));
        }
    }
    if (!uncalibrated.empty()) {
        std::string names;
        for (EyeGesture g : uncalibrated) names += std::string(names.empty() ? "" : ", ") + GazeClient::name(g);
        fprintf(stderr, "gazectl: %s not calibrated: run gazectl calibrate %s%s\n", names.c_str(),
                GazeClient::name(uncalibrated[0]), uncalibrated.size() > 1 ? " (and the others)" : "");
    }
    if (started.empty()) {
        fprintf(stderr, "gazectl: no detector is running; nothing to watch\n");
        return tools::kExitFailed;
    }
    std::string names;
    for (EyeGesture g : started) names += std::string(names.empty() ? "" : ", ") + GazeClient::name(g);
    fprintf(stderr, "gazectl: watching %s (Ctrl-C to stop)\n", names.c_str());

    EventPrinter printer(stdout, options.json, nowNanos());
    client->setPrinter([&printer](const GestureEvent& e) {
        printer.add({e.gesture, e.startTimeNanos, e.endTimeNanos, wallNanos()});
    });
    const int64_t end = options.endNs;
    int status = tools::kExitOk;
    bool saidGone = false;
    int64_t lastHubCheck = 0;
    while (nowNanos() < end) {
        if (gInterrupted.load()) {
            status = tools::kExitInterrupted;
            break;
        }
        if (!printer.print(nowNanos(), false)) break;  // stdout closed: the reader is done
        if (nowNanos() - lastHubCheck > 250000000) {
            lastHubCheck = nowNanos();
            if (!GazeClient::hubPresent()) {
                if (!saidGone) {
                    LogRouter::install().setMuted(true);
                    LogRouter::install().dropHeldErrors();
                    fprintf(stderr, "gazectl: the sensor hub disappeared (%s is gone)%s\n",
                            GazeClient::hubMarkerPath().c_str(), options.wait ? "; waiting for it" : "");
                    saidGone = true;
                }
                if (!options.wait) {
                    status = tools::kExitFailed;
                    break;
                }
            } else if (saidGone) {
                // Back. The service's sensor holds the files of the old hub
                // and is never made again in a process, so gazectl starts
                // afresh (see main).
                fprintf(stderr, "gazectl: the sensor hub is back; starting again\n");
                status = kRestart;
                break;
            }
        }
        LogRouter::install().showHeldErrors();
        usleep(20000);
    }
    client->setPrinter(nullptr);
    printer.print(nowNanos(), true);
    // Time ran out while the hub was away: nothing was watched then.
    if (saidGone && status == tools::kExitOk && !GazeClient::hubPresent()) status = tools::kExitFailed;
    return status;
}

// The raw-data logs in the service's directory.
std::set<std::string> rawLogs() {
    std::set<std::string> names;
    const std::string dir = Paths::resolve("/data/system/gaze").string();
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            if (strncmp(e->d_name, "prox_data_", 10) == 0) names.insert(dir + "/" + e->d_name);
        }
        closedir(d);
    }
    return names;
}

int record(GazeClient* client, double seconds) {
    G* service = client->service();
    const std::set<std::string> before = rawLogs();
    if (!service->startLogging()) {
        fprintf(stderr, "gazectl: cannot start the raw-data log (run with --verbose or --log FILE for why)\n");
        return tools::kExitFailed;
    }
    fprintf(stderr, "gazectl: recording %.0f s of raw data into %s ...\n", seconds,
            Paths::resolve("/data/system/gaze/").string());
    const int64_t end = nowNanos() + static_cast<int64_t>(seconds * 1e9);
    int status = tools::kExitOk;
    while (nowNanos() < end) {
        if (gInterrupted.load()) {
            status = tools::kExitInterrupted;
            break;
        }
        if (!GazeClient::hubPresent()) {
            LogRouter::install().setMuted(true);
            fprintf(stderr, "gazectl: the sensor hub disappeared; the log ends here\n");
            status = tools::kExitFailed;
            break;
        }
        LogRouter::install().showHeldErrors();
        usleep(20000);
    }
    // A log cut short by Ctrl-C is still a good log.
    if (!service->stopLogging() && status == tools::kExitOk) status = tools::kExitFailed;
    for (const std::string& name : rawLogs()) {
        if (before.count(name) == 0) printf("%s\n", name.c_str());
    }
    return status;
}

// The dump split into the service's part and one part per module.
nlohmann::json dumpToJson(const std::string& text) {
    static const std::string kSeparator = "------------------------------\n";
    nlohmann::json out = {{"text", text}};
    nlohmann::json modules = nlohmann::json::array();
    size_t pos = text.find(kSeparator);
    out["service"] = text.substr(0, pos);
    while (pos != std::string::npos) {
        const size_t begin = pos + kSeparator.size();
        pos = text.find(kSeparator, begin);
        std::string part = text.substr(begin, pos == std::string::npos ? std::string::npos : pos - begin);
        const size_t endMark = part.find("... end dumping GazeServiceModule's.");
        if (endMark != std::string::npos) part.erase(endMark);
        char name[128] = "", version[128] = "";
        sscanf(part.c_str(), "Module: %127s  Version: %127[^\n]", name, version);
        modules.push_back({{"name", name}, {"version", version}, {"text", part}});
    }
    out["modules"] = modules;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    // Before any other thread exists, so that every thread inherits the mask.
    takeStopSignals();
    CLI::App app{"gazectl: drive the gaze service: watch gestures, calibrate, record raw data, show status"};
    app.require_subcommand(1);
    tools::addVersionFlag(app, "gazectl");
    std::string root, serial, logPath;
    bool verbose = false, wait = false, noHubRecovery = false;
    unsigned int threadDelayMs = 0;
    app.add_option("--root", root, "Directory that stands in for / (sets VELTOGAZE_ROOT)");
    app.add_option("--serial", serial, "Device serial number; its first letter is the hardware revision (WINK needs G or later)");
    app.add_option("--log", logPath, "Append every line the service logs to this file");
    app.add_flag("-v,--verbose", verbose, "Show every line the service logs on stderr");
    app.add_flag("--wait", wait, "Wait for the sensor hub to appear (and, in watch, to come back)");
    app.add_flag("--no-hub-recovery", noHubRecovery,
                 "Run the sensor without hub recovery, as the plain driver does (see docs/gazectl.md)");
    app.add_option("--thread-delay-ms", threadDelayMs, "Delay of the sensor thread's first turn (default 0; a device waits 15000)")
            ->check(CLI::Range(0u, 60000u));

    WatchOptions watchOptions;
    CLI::App* watchCmd = app.add_subcommand("watch", "Start gesture detectors and print each event");
    watchCmd->add_option("gestures", watchOptions.gestures, "WINK, DOUBLE_BLINK, DON, LOOK_AT_SCREEN (default: all that can run)");
    watchCmd->add_flag("--one-shot", watchOptions.oneShot, "Stop each detector after its first event");
    watchCmd->add_option("--timeout-ms", watchOptions.timeoutMs, "Stop the double-blink detector after this long")
            ->check(CLI::Range(1, 24 * 3600 * 1000));
    watchCmd->add_option("--seconds", watchOptions.seconds, "Run this long (default: until Ctrl-C)")
            ->check(CLI::Range(0.0, 1e7));
    watchCmd->add_flag("--json", watchOptions.json, "One JSON object per line and event");

    std::string calibrateName;
    GuidedCalibration::Options calibration;
    calibration.seconds = 0;
    CLI::App* calibrateCmd = app.add_subcommand("calibrate", "Guide the wearer through a calibration, check it, save it");
    calibrateCmd->add_option("gesture", calibrateName, "WINK, DON or LOOK_AT_SCREEN")->required();
    calibrateCmd->add_option("--seconds", calibration.seconds,
                             "Length of the interval (default: WINK 40, DON 10, LOOK_AT_SCREEN 12)");
    calibrateCmd->add_flag("--dry-run", calibration.dryRun, "Check and show what would be saved; write nothing");

    double recordSeconds = 10;
    CLI::App* recordCmd = app.add_subcommand("record", "Write raw samples to a log under /data/system/gaze");
    recordCmd->add_option("--seconds", recordSeconds, "Length of the recording")->check(CLI::Range(0.1, 1e7));

    bool statusJson = false;
    CLI::App* statusCmd = app.add_subcommand("status", "Show the hub, its firmware and parameters, and each gesture's state");
    statusCmd->add_flag("--json", statusJson, "One JSON object");

    bool dumpJson = false;
    CLI::App* dumpCmd = app.add_subcommand("dump", "Print the service's state dump");
    dumpCmd->add_flag("--json", dumpJson, "One JSON object: the service's part and one part per module");

    std::string simControl;
    velto::gazectl::DemoOptions demo;
    CLI::App* demoCmd = app.add_subcommand("demo", "A guided tour on veltohub-sim (needs its control socket)");
    demoCmd->add_option("--sim-control", simControl, "The simulator's control socket")->required();
    demoCmd->add_option("--speed", demo.speed, "The simulator's --speed")->check(CLI::Range(0.001, 100000.0));
    demoCmd->add_option("--svg", demo.svgPath, "Write the timeline of the detections here");
    demoCmd->add_option("--labels", demo.labelsPath, "The simulator's --labels file, drawn on the timeline");
    demoCmd->add_flag("--json", demo.json, "Print the table as JSON (the tour goes to stderr)");

    const int parsed = tools::parseCommandLine(app, "gazectl", argc, argv);
    if (parsed >= 0) return parsed;

    // Everything on the command line is checked before the service starts.
    std::vector<EyeGesture> unused;
    std::string bad;
    if (*watchCmd && !parseGestures(watchOptions.gestures, &unused, &bad)) {
        return tools::usageError("gazectl", "watch: unknown gesture '" + bad +
                                                    "' (WINK, DOUBLE_BLINK, DON, DOFF, LOOK_AT_SCREEN)");
    }
    if (*calibrateCmd) {
        if (!GuidedCalibration::parseGesture(calibrateName, &calibration.gesture)) {
            return tools::usageError("gazectl", "calibrate: '" + calibrateName +
                                                        "' has no calibration (WINK, DON, LOOK_AT_SCREEN)");
        }
        const bool wink = calibration.gesture == G::WINK;
        const double lo = wink ? 5 : GuidedCalibration::kMinLevelSeconds;
        const double hi = wink ? GuidedCalibration::kMaxWinkSeconds : GuidedCalibration::kMaxLevelSeconds;
        if (calibration.seconds != 0 && !(calibration.seconds >= lo && calibration.seconds <= hi)) {
            std::ostringstream why;
            why << "calibrate: --seconds must lie between " << lo << " and " << hi << " for " << calibrateName;
            return tools::usageError("gazectl", why.str());
        }
    }
    if (*demoCmd && access(simControl.c_str(), F_OK) != 0) {
        return tools::usageError("gazectl", "demo: no control socket at " + simControl);
    }

    // The library reads these once, so they are set before its first use.
    if (!root.empty()) setenv("VELTOGAZE_ROOT", root.c_str(), 1);
    if (!serial.empty()) setenv("VELTOGAZE_SERIAL", serial.c_str(), 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", std::to_string(threadDelayMs).c_str(), 0);
    // A service that runs for days should find its way back from hub faults
    // by itself; the sensor is created by the first start, below.
    VeltohubProximitySensor::setHubRecoveryEnabled(!noHubRecovery);
    LogRouter& log = LogRouter::install();
    log.setVerbose(verbose);
    std::string error;
    if (!logPath.empty() && !log.openFile(logPath, &error)) return tools::usageError("gazectl", error);

    ::signal(SIGPIPE, SIG_IGN);  // a closed stdout shows as a failed write

    if (*statusCmd) {
        const nlohmann::json status = Status::gather();
        if (statusJson) {
            printf("%s\n", status.dump(2).c_str());
        } else {
            fputs(Status::toText(status).c_str(), stdout);
        }
        if (!status["hub"]["present"].get<bool>()) {
            fprintf(stderr, "gazectl: no sensor hub at %s (start veltohub-sim and pass its --root)\n",
                    GazeClient::hubMarkerPath().c_str());
            return tools::kExitFailed;
        }
        return tools::kExitOk;
    }

    android::sp<GazeClient> client = new GazeClient();
    if (!client->connect(wait, gInterrupted)) {
        log.finish();
        return gInterrupted.load() ? tools::kExitInterrupted : tools::kExitFailed;
    }
    int status = tools::kExitOk;
    if (*watchCmd) {
        watchOptions.wait = wait;
        if (watchOptions.seconds >= 0) {
            watchOptions.endNs = nowNanos() + static_cast<int64_t>(watchOptions.seconds * 1e9);
            if (const char* carried = getenv(kWatchEndVariable)) watchOptions.endNs = strtoll(carried, nullptr, 10);
        }
        status = watch(client.get(), watchOptions);
        if (status == kRestart) setenv(kWatchEndVariable, std::to_string(watchOptions.endNs).c_str(), 1);
    } else if (*calibrateCmd) {
        if (!client->service()->isGestureSupported(calibration.gesture)) {
            fprintf(stderr, "gazectl: %s\n", whyUnsupported(calibration.gesture).c_str());
            status = tools::kExitFailed;
        } else {
            status = GuidedCalibration(client.get(), calibration, gInterrupted).run();
        }
    } else if (*recordCmd) {
        status = record(client.get(), recordSeconds);
    } else if (*demoCmd) {
        velto::hubsim::ControlClient sim;
        if (!sim.connect(simControl, &error)) {
            fprintf(stderr, "gazectl: %s\n", error.c_str());
            status = tools::kExitFailed;
        } else {
            demo.interrupted = &gInterrupted;
            status = Demo(client.get(), &sim, demo).run();
        }
    } else {
        android::String8 text;
        client->service()->dump(text);
        if (dumpJson) {
            printf("%s\n", dumpToJson(text.string()).dump(2).c_str());
        } else {
            fputs(text.string(), stdout);
        }
    }
    client->shutdown();
    log.finish();
    if (status == kRestart) {
        // The mask and any pending Ctrl-C carry over to the new image.
        execv("/proc/self/exe", argv);
        fprintf(stderr, "gazectl: cannot start again: %s\n", strerror(errno));
        return tools::kExitFailed;
    }
    return status == tools::kExitOk && gInterrupted.load() ? tools::kExitInterrupted : status;
}
