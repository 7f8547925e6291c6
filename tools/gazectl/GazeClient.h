#ifndef VELTO_GAZECTL_GAZE_CLIENT_H
#define VELTO_GAZECTL_GAZE_CLIENT_H

#include <stdint.h>
#include <utils/RefBase.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "service/GazeServiceInterface.h"

namespace velto {
namespace gazectl {

typedef GazeServiceInterface::EyeGesture EyeGesture;

// One gesture the service reported, with the client's own clock.
struct GestureEvent {
    EyeGesture gesture;
    int64_t startTimeNanos;
    int64_t endTimeNanos;
    double secondsSinceStart;
};

// What the service found of a gesture's stored calibration when it started.
enum class CalibrationState { kUnknown, kLoaded, kMissing, kNotNeeded };

// The service as an application uses it: one listener that keeps every event
// and lets the caller wait for them.
class GazeClient : public GazeServiceInterface::GazeListenerInterface {
public:
    GazeClient();

    // Obtains and starts the service; false (with the reason on stderr) when
    // the hardware is missing. With `wait`, waits for the hub to appear
    // until `interrupted` is set. The service's start-up lines are kept off
    // the terminal; what they say about calibrations is kept instead.
    bool connect(bool wait, const std::atomic<bool>& interrupted);
    bool connect() {
        static const std::atomic<bool> kNever{false};
        return connect(false, kNever);
    }
    GazeServiceInterface* service() const { return mService; }
    bool isConnected() const { return mConnected; }
    CalibrationState calibrationState(EyeGesture gesture) const;

    // Leaves the hub as an idle device expects it, on every way out: every
    // detector and log stopped, the hub paused and not streaming, the event
    // thread ended and no wake lock of the service held. Each step is
    // bounded in time, also when the hub is gone. Safe to call twice.
    void shutdown();

    // Whether the hub's attribute files are there now.
    static bool hubPresent();
    // The file that tells whether a hub is present, as opened.
    static std::string hubMarkerPath();

    void onEyeGesture(EyeGesture gesture, int64_t startTimeNanos, int64_t endTimeNanos) override;

    // Called for each event as it arrives, on the sensor thread.
    void setPrinter(std::function<void(const GestureEvent&)> printer);
    std::vector<GestureEvent> events() const;
    // Waits until an event of `gesture` arrives after event number `after`;
    // true when it did within `timeoutMs`.
    bool waitForEvent(EyeGesture gesture, size_t after, int timeoutMs);
    size_t eventCount() const;

    // "WINK", "DOUBLE_BLINK", ... (also lower case and with '-'); false when unknown.
    static bool parseGesture(const std::string& name, EyeGesture* out);
    static const char* name(EyeGesture gesture);

private:
    GazeServiceInterface* mService;
    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<GestureEvent> mEvents;
    std::function<void(const GestureEvent&)> mPrinter;
    int64_t mStartNanos;
    bool mConnected = false;
    bool mShutDown = false;
    CalibrationState mCalibration[GazeServiceInterface::NUM_EYE_GESTURES] = {};
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_GAZE_CLIENT_H
