#include "tools/gazectl/GazeClient.h"

#include <hardware_legacy/power.h>
#include <log/log.h>
#include <stdio.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tools/gazectl/LogRouter.h"
#include "veltoutils/Paths.h"

namespace velto {
namespace gazectl {

GazeClient::GazeClient() : mService(nullptr), mStartNanos(systemTime(SYSTEM_TIME_MONOTONIC)) {}

namespace {

const char kTag[] = "gazectl";

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The module lines at start that say whether a stored calibration loaded.
struct CalibrationLine {
    const char* tag;
    const char* message;
    EyeGesture gesture;
    CalibrationState state;
};
const CalibrationLine kCalibrationLines[] = {
        {"GazeService:WinkModule", "... done loading calibration.", GazeServiceInterface::WINK, CalibrationState::kLoaded},
        {"GazeService:WinkModule", "ERROR: loading calibration!", GazeServiceInterface::WINK, CalibrationState::kMissing},
        {"GazeService:DonDoffModule", "... done loading calibration.", GazeServiceInterface::DON, CalibrationState::kLoaded},
        {"GazeService:DonDoffModule", "Failed to load calibration!", GazeServiceInterface::DON, CalibrationState::kMissing},
        {"GazeService:LookAtScreenModule", "Module is calibrated.", GazeServiceInterface::LOOK_AT_SCREEN,
         CalibrationState::kLoaded},
        {"GazeService:LookAtScreenModule", "Module is uncalibrated.", GazeServiceInterface::LOOK_AT_SCREEN,
         CalibrationState::kMissing},
};

}  // namespace

std::string GazeClient::hubMarkerPath() {
    android::String8 dir = Paths::resolve(VeltohubProximitySensor::kSysfsDirectory);
    return std::string(VeltohubProximitySensor::getFullPath(dir, android::String8("version")).string());
}

bool GazeClient::hubPresent() { return VeltohubProximitySensor::existsOnDevice(); }

bool GazeClient::connect(bool wait, const std::atomic<bool>& interrupted) {
    if (!hubPresent()) {
        if (!wait) {
            fprintf(stderr, "gazectl: no sensor hub at %s (start veltohub-sim and pass its --root, or use --wait)\n",
                    hubMarkerPath().c_str());
            return false;
        }
        fprintf(stderr, "gazectl: waiting for the sensor hub at %s (Ctrl-C to stop)\n", hubMarkerPath().c_str());
        while (!hubPresent()) {
            if (interrupted.load()) return false;
            usleep(100000);
        }
    }
    mService = GazeServiceInterface::getInstance();
    if (mService == nullptr) {
        fprintf(stderr, "gazectl: the gaze service is not available\n");
        return false;
    }
    mService->setGazeListener(this);
    mCalibration[GazeServiceInterface::DOUBLE_BLINK] = CalibrationState::kNotNeeded;
    LogRouter& log = LogRouter::install();
    // A new wearer has no calibrations yet; the modules' lines about that
    // become one summary line of gazectl's.
    log.setMuted(true);
    log.setObserver([this](int, const std::string& tag, const std::string& message) {
        for (const CalibrationLine& line : kCalibrationLines) {
            if (tag == line.tag && message == line.message) {
                std::lock_guard<std::mutex> lock(mLock);
                mCalibration[line.gesture] = line.state;
                if (line.gesture == GazeServiceInterface::DON) mCalibration[GazeServiceInterface::DOFF] = line.state;
            }
        }
    });
    const bool started = mService->start();
    log.setObserver(nullptr);
    log.setMuted(false);
    if (!started) {
        fprintf(stderr, "gazectl: the gaze service did not start (run with --verbose or --log FILE for why)\n");
        return false;
    }
    mConnected = true;
    return true;
}

CalibrationState GazeClient::calibrationState(EyeGesture gesture) const {
    std::lock_guard<std::mutex> lock(mLock);
    return gesture < GazeServiceInterface::NUM_EYE_GESTURES ? mCalibration[gesture] : CalibrationState::kUnknown;
}

void GazeClient::shutdown() {
    if (!mConnected || mShutDown) return;
    mShutDown = true;
    const bool present = hubPresent();
    // Without a hub every step below fails; gazectl has said so already.
    if (!present) LogRouter::install().setMuted(true);
    mService->stop();
    // The sensor exists once the service started; asking for it then makes nothing new.
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();
    if (sensor == nullptr) return;
    // The detectors' removal queues the pause and the end of streaming on
    // the event thread; give it a moment to run them.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (present && hubPresent() && std::chrono::steady_clock::now() < deadline &&
           (sensor->isStreamingData() || sensor->isPaused() != TRI_STATE_TRUE)) {
        usleep(10000);
    }
    sensor->stop();
    if (!hubPresent()) return;
    // Whatever the event thread could not finish, done here, so that the
    // hub is never left streaming to nobody.
    android::String8 dir = Paths::resolve(VeltohubProximitySensor::kSysfsDirectory);
    const std::string passthru = VeltohubProximitySensor::getFullPath(dir, android::String8("passthru_enable")).string();
    if (readText(passthru).compare(0, 1, "0") != 0) {
        std::ofstream(passthru) << "0";
        __android_log_print(ANDROID_LOG_WARN, kTag, "The hub was still streaming at exit; passthrough turned off.");
    }
    const std::string held = readText(Paths::resolve("/sys/power/wake_lock").string());
    for (const char* name : {VeltohubProximitySensor::kDataWakeLockName, VeltohubProximitySensor::kEventWakeLockName}) {
        std::istringstream words(held);
        std::string word;
        while (words >> word) {
            if (word == name) {
                release_wake_lock(name);
                __android_log_print(ANDROID_LOG_WARN, kTag, "Wake lock %s was still held at exit; released.", name);
            }
        }
    }
}

void GazeClient::onEyeGesture(EyeGesture gesture, int64_t startTimeNanos, int64_t endTimeNanos) {
    GestureEvent event{gesture, startTimeNanos, endTimeNanos, static_cast<double>(endTimeNanos - mStartNanos) * 1e-9};
    std::function<void(const GestureEvent&)> printer;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mEvents.push_back(event);
        printer = mPrinter;
    }
    mChanged.notify_all();
    if (printer) printer(event);
}

void GazeClient::setPrinter(std::function<void(const GestureEvent&)> printer) {
    std::lock_guard<std::mutex> lock(mLock);
    mPrinter = std::move(printer);
}

std::vector<GestureEvent> GazeClient::events() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents;
}

size_t GazeClient::eventCount() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents.size();
}

bool GazeClient::waitForEvent(EyeGesture gesture, size_t after, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::any_of(mEvents.begin() + static_cast<long>(std::min(after, mEvents.size())), mEvents.end(),
                           [gesture](const GestureEvent& e) { return e.gesture == gesture; });
    });
}

bool GazeClient::parseGesture(const std::string& name, EyeGesture* out) {
    std::string upper;
    for (char c : name) upper += c == '-' ? '_' : static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (int g = 0; g < GazeServiceInterface::NUM_EYE_GESTURES; ++g) {
        if (upper == GazeService::eyeGestureAsString8(static_cast<EyeGesture>(g)).string()) {
            *out = static_cast<EyeGesture>(g);
            return true;
        }
    }
    return false;
}

const char* GazeClient::name(EyeGesture gesture) { return GazeService::eyeGestureAsString8(gesture).string(); }

}  // namespace gazectl
}  // namespace velto
