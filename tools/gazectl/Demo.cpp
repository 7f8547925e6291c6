#include "tools/gazectl/Demo.h"

#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <sstream>

#include "sensor/VeltohubProximitySensor.h"
#include "tools/gazeeval/Corpus.h"
#include "tools/signal/LabelFile.h"

namespace velto {
namespace gazectl {

namespace {
typedef GazeServiceInterface G;

// Writes through a temporary file and a rename, so a reader never sees half.
bool writeFileAtomically(const std::string& path, const std::string& text) {
    const std::string tmp = path + ".tmp";
    FILE* f = fopen(tmp.c_str(), "w");
    if (f == nullptr) return false;
    const bool written = fwrite(text.data(), 1, text.size(), f) == text.size();
    if (fclose(f) != 0 || !written || rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    return true;
}
}  // namespace

void Demo::say(const char* format, ...) const {
    FILE* out = mOptions.json ? stderr : stdout;
    va_list args;
    va_start(args, format);
    vfprintf(out, format, args);
    va_end(args);
    fputc('\n', out);
    fflush(out);
}

bool Demo::waitForHubTime(int64_t hubNs) {
    if (mLate) return false;
    // Gives up only when no sample at all arrives for ten seconds of wall
    // time (the hub is gone or the service is stuck); a slow machine merely
    // makes the samples come later. In short steps, so that Ctrl-C is heard.
    int64_t seen = mTap->newestNs();
    auto lastProgress = std::chrono::steady_clock::now();
    while (!interrupted()) {
        if (mTap->waitUntil(hubNs, 100)) return true;
        const auto now = std::chrono::steady_clock::now();
        const int64_t newest = mTap->newestNs();
        if (newest != seen) {
            seen = newest;
            lastProgress = now;
        } else if (now - lastProgress > std::chrono::seconds(10)) {
            say("  (the service stopped receiving samples from the hub; the tour ends without them)");
            mLate = true;
            break;
        }
    }
    return false;
}

bool Demo::sim(const std::string& command, int64_t* startNs, int64_t* endNs) {
    if (interrupted() || mLate) return false;
    const std::string reply = mSim->command(command);
    if (reply.compare(0, 2, "OK") != 0) return false;
    if (startNs == nullptr) return true;
    std::istringstream in(reply.substr(2));
    long long start = 0, end = 0;
    if (!(in >> start >> end) || end < start) return false;
    *startNs = start;
    *endNs = end;
    return true;
}

void Demo::onEvent(const GestureEvent& event) {
    // The newest sample was delivered before this event's module saw it: the
    // tap is the sensor's first data listener.
    const int64_t hubNs = mTap->newestNs();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mDetections.push_back({event.gesture, hubNs});
    }
    say("    -> %s", GazeClient::name(event.gesture));
}

int Demo::run() {
    GazeServiceInterface* service = mClient->service();
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();
    if (sensor == nullptr) {
        fprintf(stderr, "gazectl: no sensor hub found\n");
        return 1;
    }
    // Kept for the life of the process: the event thread may still hold it in
    // the listener list it is walking when the tour removes it.
    static SampleTap* tap = new SampleTap();
    mTap = tap;
    sensor->addProxDataListener(mTap);
    say("== libveltogaze demo: a simulated wearer, the real service (the hub runs at %gx)", mOptions.speed);
    if (!mTap->waitUntil(0, 20000)) {
        fprintf(stderr, "gazectl: the hub sends no samples\n");
        sensor->removeProxDataListener(mTap);
        return 1;
    }
    say("Supported gestures:");
    for (int g = 0; g < G::NUM_EYE_GESTURES; ++g) {
        if (service->isGestureSupported(static_cast<EyeGesture>(g))) say("  %s", GazeClient::name(static_cast<EyeGesture>(g)));
    }
    mClient->setPrinter([this](const GestureEvent& e) { onEvent(e); });

    say("\n== Calibration");
    bool calibrated = calibrateDonDoff();
    calibrated = calibrateWink() && calibrated;
    calibrated = calibrateLookAtScreen() && calibrated;
    if (interrupted() || mLate) return abandon(sensor);

    say("\n== Detection: every detector running, the wearer blinking as people do");
    say("  (the hub reports at once that the device is on the head)");
    const size_t initial = mClient->eventCount();
    for (EyeGesture g : {G::DON, G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        if (!service->startGestureDetector(g, false, -1)) say("  cannot start the %s detector", GazeClient::name(g));
    }
    if (!interrupted()) mClient->waitForEvent(G::DON, initial, 10000);
    // The initial DON is the state at the start, not a detection to score.
    const int64_t fromNs = mTap->newestNs() + 1;
    pause(2.0);
    perform("double-blink", G::DOUBLE_BLINK, 2.0);
    perform("wink 450ms", G::WINK, 2.0);
    // A blink is no gesture: nothing should be reported for it.
    perform("blink 200ms", G::NUM_EYE_GESTURES, 2.0);
    perform("double-blink", G::DOUBLE_BLINK, 2.0);
    perform("wink 550ms", G::WINK, 2.0);
    // The look detectors judge a step by the 8 s before it, so the look
    // comes once they have seen that much of this wearer.
    perform("look 3s", G::LOOK_AT_SCREEN, 2.0);
    perform("doff", G::DOFF, 2.0);
    perform("don", G::DON, 2.0);
    // Every detection that can still match has arrived once the hub is a
    // second past the last gesture's end.
    const int64_t toNs = mTap->newestNs();
    for (EyeGesture g : {G::DON, G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) service->stopGestureDetector(g);

    if (interrupted() || mLate) return abandon(sensor);

    say("\n== Raw-data logging");
    record();
    service->stop();
    sensor->removeProxDataListener(mTap);
    mClient->setPrinter(nullptr);

    finish(fromNs, toNs);
    return calibrated && !mLate ? 0 : 1;
}

int Demo::abandon(VeltohubProximitySensor* sensor) {
    mClient->service()->stop();
    sensor->removeProxDataListener(mTap);
    mClient->setPrinter(nullptr);
    say(interrupted() ? "\n== Interrupted: no verdict" : "\n== The hub went away: no verdict");
    return interrupted() ? 130 : 1;
}

void Demo::finish(int64_t fromNs, int64_t toNs) {
    std::vector<DemoDetection> detections;
    {
        std::lock_guard<std::mutex> lock(mLock);
        detections = mDetections;
    }
    const DemoResult result = scoreDemo(mExpected, detections, fromNs, toNs);

    std::string svgPath = mOptions.svgPath;
    if (!svgPath.empty()) {
        std::vector<signal::Label> labels;
        std::string text;
        signal::ParseError error;
        if (!mOptions.labelsPath.empty() &&
            (!gazetools::readWholeFile(mOptions.labelsPath, &text) || !signal::LabelFile::parse(text, &labels, &error))) {
            labels.clear();  // the expected gestures stand in for the simulator's labels
        }
        if (!writeFileAtomically(svgPath, renderDemoTimeline(result, mTap->samples(), labels))) {
            fprintf(stderr, "gazectl: cannot write %s\n", svgPath.c_str());
            svgPath.clear();
        }
    }

    say("\n== Summary (times in seconds since detection began, in hub time)");
    say("%s", formatDemoTable(result, fromNs).c_str());
    if (!svgPath.empty()) say("Timeline: %s", svgPath.c_str());
    if (mOptions.json) {
        fputs(formatDemoJson(result, fromNs, svgPath).c_str(), stdout);
        fflush(stdout);
    }
}

bool Demo::calibrateDonDoff() {
    GazeServiceInterface* service = mClient->service();
    say("Don/doff: the wearer takes the device off and puts it back on.");
    if (!service->startCalibrationIntervalForGesture(G::DON)) return false;
    int64_t start = 0, end = 0;
    pause(1.5);
    if (sim("doff", &start, &end)) waitForHubTime(end + 2500000000LL);
    if (sim("don", &start, &end)) waitForHubTime(end + 2500000000LL);
    service->endCalibrationIntervalForGesture(G::DON);
    // A tour cut short saves nothing.
    if (interrupted() || mLate) return false;
    const bool saved = service->applyAndSaveCalibrationForGesture(G::DON);
    say("  %s", saved ? "don/doff thresholds calibrated and written to the hub" : "don/doff calibration failed");
    return saved;
}

bool Demo::calibrateWink() {
    GazeServiceInterface* service = mClient->service();
    if (!service->isGestureSupported(G::WINK)) {
        say("Wink: not supported on this hardware revision.");
        return true;
    }
    say("Wink: the wearer winks until the calibration is complete (five winks at most).");
    if (!service->startCalibrationIntervalForGesture(G::WINK)) return false;
    pause(1.0);
    // Winks well apart: the detector takes winks closer than 1.6 s for one,
    // and a wink unlike the others is dropped, so a wearer may need more
    // than three.
    for (int i = 0; i < 5 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        say("  wink %d", i + 1);
        int64_t start = 0, end = 0;
        if (sim("wink", &start, &end)) waitForHubTime(end + 2500000000LL);
    }
    const bool complete = service->isCalibrationCompleteForGesture(G::WINK);
    service->endCalibrationIntervalForGesture(G::WINK);
    if (interrupted() || mLate) return false;
    const bool saved = complete && service->applyAndSaveCalibrationForGesture(G::WINK);
    say("  %s", saved ? "wink calibrated; the hub's low-power detector now looks for this wearer's winks"
                      : "wink calibration failed");
    return saved;
}

bool Demo::calibrateLookAtScreen() {
    GazeServiceInterface* service = mClient->service();
    say("Look at screen: the wearer looks up at the display and back.");
    if (!service->startCalibrationIntervalForGesture(G::LOOK_AT_SCREEN)) return false;
    pause(1.0);
    int64_t start = 0, end = 0;
    if (sim("look 4s", &start, &end)) waitForHubTime(end + 2000000000LL);
    service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN);
    if (interrupted() || mLate) return false;
    const bool saved = service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN) &&
                       service->loadCalibrationForGesture(G::LOOK_AT_SCREEN);
    say("  %s", saved ? "look-at-screen threshold calibrated" : "look-at-screen calibration failed");
    return saved;
}

void Demo::perform(const std::string& action, EyeGesture expected, double restSeconds) {
    if (interrupted() || mLate) return;
    say("  wearer: %s", action.c_str());
    int64_t start = 0, end = 0;
    if (!sim(action, &start, &end)) {
        say("    (the simulator could not do that now)");
        pause(restSeconds);
        return;
    }
    if (expected != G::NUM_EYE_GESTURES) mExpected.push_back({action, expected, start, end});
    waitForHubTime(end + static_cast<int64_t>(restSeconds * 1e9));
}

void Demo::record() {
    GazeServiceInterface* service = mClient->service();
    if (!service->startLogging()) {
        say("  logging did not start");
        return;
    }
    pause(3.0);
    service->stopLogging();
    say("  three seconds of raw samples written to /data/system/gaze/prox_data_*.txt (below the root)");
}

}  // namespace gazectl
}  // namespace velto
