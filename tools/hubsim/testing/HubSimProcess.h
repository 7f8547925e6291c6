#ifndef VELTO_HUBSIM_TESTING_HUBSIMPROCESS_H
#define VELTO_HUBSIM_TESTING_HUBSIMPROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/hubsim/ControlClient.h"

namespace velto {
namespace hubsim {

// Runs veltohub-sim as a child process for an end-to-end test.
//
//   HubSimProcess sim;
//   HubSimProcess::Options options;
//   options.scenario = "at 1s doff\n";
//   options.speed = 8;
//   ASSERT_TRUE(sim.start(options, &error)) << error;
//   setenv("VELTOGAZE_ROOT", sim.root().c_str(), 1);   // before the library reads it
//   ... drive the library ...
//   EXPECT_EQ(sim.command("get passthru_enable"), "OK 1");
//
// start() gives the simulator a fresh root (in its own temporary directory,
// beside the control socket and the labels file) and returns once the hub
// is mounted. stop() (also run by the destructor) ends it with SIGTERM and
// checks that nothing stays mounted. The child is killed if the thread that
// started it ends, so start it from the test's own thread.
class HubSimProcess {
public:
    struct Options {
        std::string scenario;      // scenario text; empty: the simulator's default wearer
        std::string scenarioFile;  // or a scenario file (wins over the text)
        std::string replayFile;    // or a recording to replay
        double speed = 1.0;
        bool labels = true;  // ask for --labels (see labelsPath())
        std::vector<std::string> extraArgs;
        int readyTimeoutMs = 10000;
    };

    HubSimProcess() = default;
    ~HubSimProcess();
    HubSimProcess(const HubSimProcess&) = delete;
    HubSimProcess& operator=(const HubSimProcess&) = delete;

    // The veltohub-sim the build made.
    static std::string binary();

    bool start(const Options& options, std::string* error);
    // One control command; the reply line without its newline, or "ERR ..."
    // when the simulator cannot be reached.
    std::string command(const std::string& line);
    // Ends the simulator; true when it exited cleanly and left no mount.
    bool stop(std::string* error = nullptr);

    bool running() const { return mPid > 0; }
    pid_t pid() const { return mPid; }
    // The directory to use as VELTOGAZE_ROOT.
    const std::string& root() const { return mRoot; }
    const std::string& labelsPath() const { return mLabels; }
    // What the simulator wrote to stderr so far.
    std::string errorOutput() const;
    // Whether the hub's file system is mounted under the root.
    bool mounted() const;

private:
    pid_t mPid = -1;
    ControlClient mControl;
    std::string mDir;  // temporary directory holding everything
    std::string mRoot;
    std::string mSocket;
    std::string mLabels;
    std::string mStderr;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_TESTING_HUBSIMPROCESS_H
