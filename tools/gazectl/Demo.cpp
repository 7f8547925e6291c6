#include "tools/gazectl/Demo.h"

#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include <vector>

namespace velto {
namespace gazectl {

namespace {
typedef GazeServiceInterface G;
}

void Demo::say(const char* format, ...) const {
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    printf("\n");
    fflush(stdout);
}

void Demo::pause(double simSeconds) const { usleep(static_cast<useconds_t>(simSeconds / mSpeed * 1e6)); }

int Demo::run() {
    GazeServiceInterface* service = mClient->service();
    say("== libveltogaze demo: a simulated wearer, the real service");
    say("Supported gestures:");
    for (int g = 0; g < G::NUM_EYE_GESTURES; ++g) {
        if (service->isGestureSupported(static_cast<EyeGesture>(g))) say("  %s", GazeClient::name(static_cast<EyeGesture>(g)));
    }
    mClient->setPrinter([](const GestureEvent& e) { printf("    -> event %s at %.3f s\n", GazeClient::name(e.gesture), e.secondsSinceStart); });

    say("\n== Calibration");
    bool calibrated = calibrateDonDoff();
    calibrated = calibrateWink() && calibrated;
    calibrated = calibrateLookAtScreen() && calibrated;

    say("\n== Detection: every detector running, the wearer blinking as people do");
    say("  (the hub reports at once that the device is on the head)");
    const size_t initial = mClient->eventCount();
    for (EyeGesture g : {G::DON, G::WINK, G::DOUBLE_BLINK, G::LOOK_AT_SCREEN}) {
        if (!service->startGestureDetector(g, false, -1)) say("  cannot start the %s detector", GazeClient::name(g));
    }
    mClient->waitForEvent(G::DON, initial, static_cast<int>(2000.0 / mSpeed));
    pause(2.0);
    const size_t before = mClient->eventCount();
    perform("double-blink", G::DOUBLE_BLINK, 2.0);
    perform("wink 450ms", G::WINK, 2.5);
    perform("look 3s", G::LOOK_AT_SCREEN, 3.5);
    // A blink while still at the display; the wearer has looked back well
    // before the next double blink.
    perform("blink 200ms", G::NUM_EYE_GESTURES, 2.5);
    perform("double-blink", G::DOUBLE_BLINK, 2.0);
    perform("wink 550ms", G::WINK, 2.5);
    perform("doff", G::DOFF, 2.0);
    perform("don", G::DON, 2.0);
    pause(2.0);
    mUnexpected = static_cast<int>(mClient->eventCount() - before) - mDetected;

    say("\n== Raw-data logging");
    record();

    service->stop();
    say("\n== Summary: %d of %d gestures detected, %d other events", mDetected, mPerformed, mUnexpected);
    return calibrated ? 0 : 1;
}

bool Demo::calibrateDonDoff() {
    GazeServiceInterface* service = mClient->service();
    say("Don/doff: the wearer takes the device off and puts it back on.");
    if (!service->startCalibrationIntervalForGesture(G::DON)) return false;
    pause(1.5);
    sim("doff");
    pause(2.5);
    sim("don");
    pause(2.5);
    service->endCalibrationIntervalForGesture(G::DON);
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
    say("Wink: the wearer winks until the calibration is complete (three at most).");
    if (!service->startCalibrationIntervalForGesture(G::WINK)) return false;
    pause(1.0);
    for (int i = 0; i < 3 && !service->isCalibrationCompleteForGesture(G::WINK); ++i) {
        say("  wink %d", i + 1);
        sim("wink");
        pause(2.5);
    }
    const bool complete = service->isCalibrationCompleteForGesture(G::WINK);
    service->endCalibrationIntervalForGesture(G::WINK);
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
    sim("look 4s");
    pause(6.0);
    service->endCalibrationIntervalForGesture(G::LOOK_AT_SCREEN);
    const bool saved = service->applyAndSaveCalibrationForGesture(G::LOOK_AT_SCREEN) &&
                       service->loadCalibrationForGesture(G::LOOK_AT_SCREEN);
    say("  %s", saved ? "look-at-screen threshold calibrated" : "look-at-screen calibration failed");
    return saved;
}

bool Demo::perform(const std::string& action, EyeGesture expected, double windowSeconds) {
    const size_t before = mClient->eventCount();
    say("  wearer: %s", action.c_str());
    if (!sim(action)) {
        say("    (the simulator could not do that now)");
        return false;
    }
    if (expected == G::NUM_EYE_GESTURES) {
        pause(windowSeconds);
        return true;
    }
    ++mPerformed;
    const bool seen = mClient->waitForEvent(expected, before, static_cast<int>(windowSeconds / mSpeed * 1000.0));
    if (seen) {
        ++mDetected;
    } else {
        say("    (no %s reported)", GazeClient::name(expected));
    }
    pause(1.0);
    return seen;
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
