#ifndef VELTO_SCRIPTED_BOOSTING_DETECTOR_TEST_H
#define VELTO_SCRIPTED_BOOSTING_DETECTOR_TEST_H

#include <map>
#include <vector>

#include "classifier/BoostingDetector.h"

namespace velto {
namespace test {

// A boosting detector for the detector-set tests: it fires on the calls named
// in `fires` (0 = first call) with the given gesture info and records what it
// was fed.
class ScriptedBoostingDetector : public BoostingDetector {
public:
    bool normalizeFrameRateAndDetectGesture(double timestamp_ms, float value, GestureInfo* info) override {
        times.push_back(timestamp_ms);
        values.push_back(value);
        auto it = fires.find(calls++);
        if (it == fires.end()) return false;
        *info = it->second;
        return true;
    }
    void reset() override { ++resets; }

    void fireAt(int call, float magnitude, float duration) {
        GestureInfo info;
        info.magnitude = magnitude;
        info.duration = duration;
        fires[call] = info;
    }

    std::map<int, GestureInfo> fires;
    int calls = 0;
    int resets = 0;
    std::vector<double> times;
    std::vector<float> values;
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_SCRIPTED_BOOSTING_DETECTOR_TEST_H
