#ifndef VELTO_GAZECTL_SIM_CONTROL_H
#define VELTO_GAZECTL_SIM_CONTROL_H

#include <string>

namespace velto {
namespace gazectl {

// A line client of veltohub-sim's control socket: the demo makes the
// simulated wearer perform gestures with it.
class SimControl {
public:
    ~SimControl();
    bool connect(const std::string& socketPath, std::string* error);
    // One command; the reply line, or "ERR ..." when the simulator is gone.
    std::string command(const std::string& line);
    bool ok(const std::string& line) { return command(line).compare(0, 2, "OK") == 0; }

private:
    int mFd = -1;
    std::string mPending;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_SIM_CONTROL_H
