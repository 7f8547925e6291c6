#ifndef VELTO_GAZECTL_DEMO_H
#define VELTO_GAZECTL_DEMO_H

#include <string>

#include "tools/gazectl/GazeClient.h"
#include "tools/hubsim/ControlClient.h"

namespace velto {
namespace gazectl {

// A guided tour of the service on the simulator: the simulated wearer is
// asked (through the simulator's control socket) to calibrate and then to
// perform gestures, and every event the service reports is shown beside what
// the wearer did.
class Demo {
public:
    Demo(GazeClient* client, hubsim::ControlClient* sim, double speed) : mClient(client), mSim(sim), mSpeed(speed) {}
    // Returns the process exit status: 0 when every step ran.
    int run();

private:
    // Sleeps `simSeconds` of simulated time.
    void pause(double simSeconds) const;
    bool calibrateDonDoff();
    bool calibrateWink();
    bool calibrateLookAtScreen();
    // The wearer performs `action`; true when `expected` is reported within
    // `windowSeconds` of simulated time (NUM_EYE_GESTURES: nothing expected).
    bool perform(const std::string& action, EyeGesture expected, double windowSeconds);
    void record();
    void say(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    // Asks the simulated wearer (or hub) to do `command`; true when it could.
    bool sim(const std::string& command) { return mSim->command(command).compare(0, 2, "OK") == 0; }

    GazeClient* mClient;
    hubsim::ControlClient* mSim;
    double mSpeed;
    int mPerformed = 0;
    int mDetected = 0;
    int mUnexpected = 0;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_DEMO_H
