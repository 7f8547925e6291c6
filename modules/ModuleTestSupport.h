#ifndef VELTO_MODULE_TEST_SUPPORT_H
#define VELTO_MODULE_TEST_SUPPORT_H

// Test doubles for the gesture modules: scripted detectors and a service that
// records the events it is asked to send.
#include <set>
#include <string>
#include <vector>

#include "detectors/CalibratedEyeGestureDetectorInterface.h"
#include "service/GazeService.h"
#include "tests/harness/FakeProximitySensor.h"

namespace velto {
namespace test {

// Answers `gesture` for the samples whose reading is in `detectAt`, -1 otherwise.
class ScriptedDetector : public virtual CalibratedEyeGestureDetectorInterface {
public:
    explicit ScriptedDetector(int gesture) : mGesture(gesture) {}
    std::set<uint32_t> detectAt;
    std::vector<long long> seen;  // time stamps fed in
    bool calibrated = false;
    bool calibrationOn = false;
    bool needMore = true;
    bool applyResult = true;
    int* deletions = nullptr;

    ~ScriptedDetector() override {
        if (deletions != nullptr) ++*deletions;
    }
    void reset() override {}
    int update(long long timestamp, const float* samples, int count) override {
        if (count != 1) return -1;  // modules hand over one sample at a time
        seen.push_back(timestamp);
        return detectAt.count(static_cast<uint32_t>(samples[0])) != 0 ? mGesture : -1;
    }
    android::String8 getVersionString() const override { return android::String8("scripted"); }
    android::String8 getDebugString() const override { return android::String8("scripted detector"); }
    bool applyAndSaveCalibration(const char*) override {
        if (applyResult) saved = true;
        return applyResult;
    }
    // A saved calibration, as a detector would find it in its file.
    bool saved = false;
    std::vector<std::string> loadedFrom;
    bool loadCalibration(const char* file) override {
        loadedFrom.push_back(file);
        if (saved) calibrated = true;
        return saved;
    }
    bool isCalibrated() const override { return calibrated; }
    bool isCalibrationOn() const override { return calibrationOn; }
    bool startCalibrationInterval() override { return calibrationOn = true; }
    bool endCalibrationInterval() override {
        const bool was = calibrationOn;
        calibrationOn = false;
        return was;
    }
    bool clearCalibration() override { return !(calibrated = false); }
    bool needMoreCalibrationEyeGestures() const override { return needMore; }

private:
    int mGesture;
};

// A service whose sendEyeGestureEventNow only records the gesture.
class RecordingService : public GazeService {
public:
    RecordingService() : GazeService(nullptr, android::String8("G")) {}
    std::vector<EyeGesture> events;
    void sendEyeGestureEventNow(EyeGesture gesture) override { events.push_back(gesture); }
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_MODULE_TEST_SUPPORT_H
