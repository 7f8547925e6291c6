#ifndef VELTO_E2E_SUPPORT_H
#define VELTO_E2E_SUPPORT_H

// Shared by the end-to-end scenarios: each test case runs in its own process
// (one ctest entry each) with the library in-process and veltohub-sim serving
// the hub under a fresh root.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

#include "tools/hubsim/testing/HubSimProcess.h"

namespace velto {
namespace e2e {

// A still wearer: no spontaneous blinks, no noise, no drift.
inline const char* stillWearer() {
    return "spontaneous off\nwearer baseline 1200\nwearer noise 0\nwearer drift 0\n"
           "wearer spikes-per-hour 0\nwearer sample-loss-per-hour 0\n";
}

// Simulator options for a scenario text at a clock speed.
inline hubsim::HubSimProcess::Options scenario(const std::string& text, double speed) {
    hubsim::HubSimProcess::Options options;
    options.scenario = text;
    options.speed = speed;
    return options;
}

// Starts the simulator and points the library at it. Must run before the
// library's first file access in this process (the root is read once).
inline void startHub(hubsim::HubSimProcess* sim, const hubsim::HubSimProcess::Options& options) {
    std::string error;
    ASSERT_TRUE(sim->start(options, &error)) << error;
    setenv("VELTOGAZE_ROOT", sim->root().c_str(), 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", "0", 1);
}

// Polls `done` every 5 ms until it holds or `timeoutMs` pass.
inline bool waitFor(const std::function<bool()>& done, int timeoutMs = 10000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        usleep(5000);
    }
    return true;
}

// The value part of an "OK <value>" reply of the simulator.
inline std::string value(const std::string& reply) { return reply.size() > 3 ? reply.substr(3) : std::string(); }

}  // namespace e2e
}  // namespace velto

#endif  // VELTO_E2E_SUPPORT_H
