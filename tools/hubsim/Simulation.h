#ifndef VELTO_HUBSIM_SIMULATION_H
#define VELTO_HUBSIM_SIMULATION_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/hubsim/HubModel.h"
#include "tools/hubsim/Scenario.h"
#include "tools/hubsim/WakeLocks.h"
#include "tools/signal/EyeSignalModel.h"
#include "tools/signal/Label.h"
#include "tools/signal/Recording.h"
#include "tools/signal/SampleClock.h"

namespace velto {
namespace hubsim {

// The whole simulated device without the file system: the hub, the wearer
// (an eye-signal model, or a recording being replayed), the scenario's timed
// actions, the wake locks, and the control commands. Single-threaded: the
// caller serialises access and moves time forward.
class Simulation {
public:
    // A wearer driven by a scenario; `image` is the firmware the build ships,
    // which the hub runs unless the scenario says otherwise.
    Simulation(const Scenario& scenario, const FirmwareImage& image);
    // A replay of recorded samples; hub time stamps equal the recorded ones.
    // `labels` (in recorded time) are passed on as they are.
    Simulation(const Scenario& scenario, const FirmwareImage& image,
               std::vector<signal::RecordedSample> samples, std::vector<signal::Label> labels);

    // Runs every action and sample due up to `simNs` (simulation time, 0 at
    // the start).
    void advanceTo(int64_t simNs);
    // When the next action or sample is due; INT64_MAX when nothing is.
    int64_t nextDueNs() const;

    // One line of the control protocol; returns the reply line without a
    // newline ("OK ..." or "ERR ...").
    std::string control(std::string_view line);

    HubModel& hub() { return mHub; }
    const HubModel& hub() const { return mHub; }
    WakeLocks& wakeLocks() { return mWakeLocks; }
    bool quitRequested() const { return mQuit; }
    bool replayFinished() const { return mReplay && mReplayNext >= mReplaySamples.size(); }

    // Labels finished so far in hub time, and warnings about actions that
    // could not run; both are handed over once.
    void takeLabels(std::vector<signal::Label>* out);
    void takeWarnings(std::vector<std::string>* out);

private:
    void configureHub(const Scenario& scenario);
    // Runs an action now; false with a reason when it cannot.
    bool run(const Action& action, std::string* error, signal::Label* span);
    std::string query(const std::vector<std::string_view>& words);

    HubModel mHub;
    WakeLocks mWakeLocks;
    std::unique_ptr<signal::EyeSignalModel> mModel;
    std::unique_ptr<signal::SampleClock> mClock;
    std::vector<TimedAction> mActions;
    size_t mNextAction = 0;
    bool mReplay = false;
    std::vector<signal::RecordedSample> mReplaySamples;
    size_t mReplayNext = 0;
    int64_t mReplayShift = 0;  // recorded time minus simulation time
    std::vector<signal::Label> mLabels;
    std::vector<std::string> mWarnings;
    bool mQuit = false;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_SIMULATION_H
