#ifndef VELTO_GAZECTL_DEMO_H
#define VELTO_GAZECTL_DEMO_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "tools/gazectl/DemoReport.h"
#include "tools/gazectl/GazeClient.h"
#include "tools/gazectl/SampleTap.h"
#include "tools/hubsim/ControlClient.h"

namespace velto {
class VeltohubProximitySensor;

namespace gazectl {

struct DemoOptions {
    double speed = 1.0;       // the simulator's --speed, for the narration (everything waits on hub time)
    std::string svgPath;      // where the timeline goes ("" for none)
    std::string labelsPath;   // the simulator's --labels file, drawn on the timeline
    bool json = false;        // the table as JSON on stdout, the narration on stderr
    // Set by Ctrl-C: the tour stops waiting and ends without a verdict.
    const std::atomic<bool>* interrupted = nullptr;
};

// A guided tour of the service on the simulator: the simulated wearer is
// asked (through the simulator's control socket) to calibrate and then to
// perform gestures, and every event the service reports is scored against the
// simulator's ground truth. Everything is paced and scored in hub time, as the
// samples the library receives carry it, so a slow or loaded machine delays
// the tour but does not change its verdict.
class Demo {
public:
    Demo(GazeClient* client, hubsim::ControlClient* sim, const DemoOptions& options)
        : mClient(client), mSim(sim), mOptions(options) {}
    // Returns the process exit status: 0 when the tour ran to its end (missed
    // gestures are part of the report, not a failure), 1 otherwise.
    int run();

private:
    // Waits until the library has received samples up to `hubNs`; false
    // (said once) when they do not come within a generous wall-clock bound,
    // and at once after that or after Ctrl-C.
    bool waitForHubTime(int64_t hubNs);
    // Waits `seconds` of hub time from the newest sample on.
    bool pause(double seconds) { return waitForHubTime(mTap->newestNs() + static_cast<int64_t>(seconds * 1e9)); }
    // Asks the simulated wearer (or hub) to do `command`; true when it could,
    // with the event's ground-truth span in hub time when it has one.
    bool sim(const std::string& command, int64_t* startNs = nullptr, int64_t* endNs = nullptr);
    bool calibrateDonDoff();
    bool calibrateWink();
    bool calibrateLookAtScreen();
    // The wearer performs `action`, then `restSeconds` of hub time pass after it.
    void perform(const std::string& action, EyeGesture expected, double restSeconds);
    void record();
    void onEvent(const GestureEvent& event);
    void finish(int64_t fromNs, int64_t toNs);
    // Ends the tour early (Ctrl-C, or no more samples): the service stopped,
    // no verdict; the exit status.
    int abandon(VeltohubProximitySensor* sensor);
    void say(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    GazeClient* mClient;
    hubsim::ControlClient* mSim;
    DemoOptions mOptions;
    SampleTap* mTap = nullptr;
    bool mLate = false;
    bool interrupted() const { return mOptions.interrupted != nullptr && mOptions.interrupted->load(); }
    std::vector<ExpectedGesture> mExpected;
    mutable std::mutex mLock;  // guards mDetections, filled on the sensor thread
    std::vector<DemoDetection> mDetections;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_DEMO_H
