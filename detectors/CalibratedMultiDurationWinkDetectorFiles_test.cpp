// The wink calibration's files: what a load refuses, and what a failed save
// leaves behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "detectors/ScriptedBoostingDetector_test.h"
#include "tests/harness/FakeProximitySensor.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/SaveFaults.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const char kWinkFile[] = "/data/system/gaze/wink/wink_calibration.txt";
const char kGoodWinkFile[] = "450.000000 550.000000 400.000000 400.000000 1";

std::string paramsPath() { return test::underRoot(MCUParams::kMcuParamsFilename.string()); }
std::string winkPath() { return test::underRoot(kWinkFile); }

// A detector as the wink module builds it after a (re)start: three duration
// detectors and whatever calibration the files hold.
std::unique_ptr<CalibratedMultiDurationWinkDetector> startDetector(ProximitySensorInterface* hub) {
    std::unique_ptr<CalibratedMultiDurationWinkDetector> d(new CalibratedMultiDurationWinkDetector(hub));
    d->addDetector(new test::ScriptedBoostingDetector(), Interval<float>(280.0f, 500.0f));
    d->addDetector(new test::ScriptedBoostingDetector(), Interval<float>(400.0f, 650.0f));
    d->addDetector(new test::ScriptedBoostingDetector(), Interval<float>(550.0f, 800.0f));
    d->loadCalibration(kWinkFile);
    return d;
}

void writeGoodFiles() {
    MCUParams params;
    params.computeWinkParams(710, 390);
    ASSERT_TRUE(params.saveToFile(MCUParams::kMcuParamsFilename));
    ASSERT_TRUE(test::writeFile(winkPath(), kGoodWinkFile));
}

TEST(WinkCalibrationFiles, BadFilesAreRefusedAndTheCalibrationInForceStays) {
    const struct {
        bool paramsFile;  // else the wink calibration file
        const char* text;
        const char* refusal;
    } kBadFiles[] = {
            {false, "450 550 400 400 7", "Refused active detector index = 7"},
            {false, "wide 550 400 400 1", "Can not read calibration magnitude range"},
            {false, "450 550 400 400 -5", "Refused active detector index = -5"},
            {false, "nan 550 400 400 1", "Refused calibration magnitude range = [nan, 550]"},
            {false, "-5 550 400 400 1", "Refused calibration magnitude range = -5"},
            {false, "450 inf 400 400 1", "Refused calibration magnitude range = [450, inf]"},
            {false, "550 450 400 400 1", "reversed range"},
            {false, "450 550 400 5000 1", "Refused calibration duration range = 5000"},
            {false, "450 550 nan 400 1", "Refused calibration duration range = [nan, 400]"},
            {true, "VERSION = 3.0\nDON_THRESH = -1\n", "Refused DON_THRESH = -1"},
            {true, "VERSION = 3.0\nGAIN = 300\n", "Refused GAIN = 300"},
            {true, "VERSION = 3.0\nWINK_MIN = 300\nWINK_MAX = 200\n", "Refused WINK_MIN..WINK_MAX = [300, 200]"},
    };
    test::ScopedLogCapture capture;
    for (const auto& bad : kBadFiles) {
        SCOPED_TRACE(bad.text);
        writeGoodFiles();
        // The wearer's calibration, loaded by a service that was restarted
        // since it was made.
        test::FakeProximitySensor hub;
        std::unique_ptr<CalibratedMultiDurationWinkDetector> running = startDetector(&hub);
        ASSERT_TRUE(running->isCalibrated());
        const MCUParams hubBefore = hub.params();
        const Interval<float> magnitudes = running->getAcceptableMagnitudeRange();

        ASSERT_TRUE(test::writeFile(bad.paramsFile ? paramsPath() : winkPath(), bad.text));
        test::LogCapture::clear();
        EXPECT_FALSE(running->loadCalibration(kWinkFile));
        const bool unreadable = std::string(bad.refusal).rfind("Can not read", 0) == 0;
        EXPECT_EQ(unreadable ? 0u : 1u, test::LogCapture::count("Refused ", ANDROID_LOG_ERROR));
        EXPECT_TRUE(test::LogCapture::contains(bad.refusal));
        // The calibration in force keeps working: same detector, same ranges,
        // the hub untouched.
        EXPECT_TRUE(running->isCalibrated());
        EXPECT_EQ(1, running->getActiveDetectorIndex());
        EXPECT_EQ(magnitudes.min, running->getAcceptableMagnitudeRange().min);
        EXPECT_EQ(magnitudes.max, running->getAcceptableMagnitudeRange().max);
        EXPECT_EQ(hubBefore.toString(), hub.params().toString());

        // A service started on the bad file stays uncalibrated.
        test::FakeProximitySensor freshHub;
        std::unique_ptr<CalibratedMultiDurationWinkDetector> restarted = startDetector(&freshHub);
        EXPECT_FALSE(restarted->isCalibrated());
        EXPECT_EQ(bad.paramsFile ? 1 : -1, restarted->getActiveDetectorIndex());
    }
}

TEST(WinkCalibrationFiles, AFailedSaveKeepsBothFilesAndTheHub) {
    const std::string gazeDir = test::underRoot("/data/system/gaze");
    const std::string winkDir = test::underRoot("/data/system/gaze/wink");
    typedef CalibratedMultiDurationWinkDetector Detector;
    const struct {
        const char* name;
        std::function<bool(Detector*)> save;  // the save, made under its fault
    } kFaults[] = {
            {"full disk",
             [](Detector* d) {
                 test::ScopedFullDisk full(8);
                 return d->applyAndSaveCalibration(kWinkFile);
             }},
            {"parameter directory unwritable",
             [&](Detector* d) {
                 test::ScopedUnwritableDir locked(gazeDir);
                 return d->applyAndSaveCalibration(kWinkFile);
             }},
            {"calibration directory unwritable",
             [&](Detector* d) {
                 // The parameter file beside it stays writable: the second
                 // of the two saves fails.
                 test::LogCapture::clear();
                 bool saved;
                 {
                     test::ScopedUnwritableDir locked(winkDir);
                     saved = d->applyAndSaveCalibration(kWinkFile);
                 }
                 EXPECT_FALSE(test::LogCapture::contains("parameter file"));
                 EXPECT_TRUE(test::LogCapture::contains("Can not open file " + winkPath() + " for write"));
                 return saved;
             }},
            {"calibration file name taken by a directory",
             [&](Detector* d) {
                 // Its temporary file is written in full; putting it in place fails.
                 test::LogCapture::clear();
                 const std::string aside = gazeDir + "/aside";
                 rename(winkPath().c_str(), aside.c_str());
                 test::makeDirs(winkPath() + "/taken");
                 const bool saved = d->applyAndSaveCalibration(kWinkFile);
                 rmdir((winkPath() + "/taken").c_str());
                 rmdir(winkPath().c_str());
                 rename(aside.c_str(), winkPath().c_str());
                 EXPECT_TRUE(test::LogCapture::contains("Can not write calibration data to file " + winkPath()));
                 return saved;
             }},
    };
    test::ScopedLogCapture capture;
    for (size_t i = 0; i < sizeof(kFaults) / sizeof(kFaults[0]); ++i) {
        SCOPED_TRACE(kFaults[i].name);
        writeGoodFiles();
        const std::string paramsBefore = test::readFile(paramsPath());
        test::FakeProximitySensor hub;
        std::unique_ptr<CalibratedMultiDurationWinkDetector> d = startDetector(&hub);
        ASSERT_TRUE(d->isCalibrated());
        const MCUParams hubBefore = hub.params();
        // A new calibration: stronger winks, so new hub thresholds.
        ASSERT_TRUE(test::writeFile(test::underRoot("/data/system/gaze/other.txt"), "600 640 400 400 1"));
        ASSERT_TRUE(d->loadHighPowerCalibration("/data/system/gaze/other.txt"));
        ASSERT_TRUE(d->startCalibrationInterval());
        const float worn = 1000.0f;
        for (int call = 0; call < 4; ++call) d->update(call * 100000000LL, &worn, 1);
        d->endCalibrationInterval();
        const size_t gazeFiles = test::listDir(gazeDir).size();

        const bool saved = kFaults[i].save(d.get());
        EXPECT_FALSE(saved);
        EXPECT_EQ(paramsBefore, test::readFile(paramsPath()));
        EXPECT_EQ(kGoodWinkFile, test::readFile(winkPath()));
        EXPECT_EQ(hubBefore.toString(), hub.params().toString());
        EXPECT_EQ(gazeFiles, test::listDir(gazeDir).size());  // no temporary file left
        EXPECT_EQ(1u, test::listDir(winkDir).size());

        // Without a fault the same calibration saves and reaches the hub.
        ASSERT_TRUE(d->applyAndSaveCalibration(kWinkFile));
        EXPECT_NE(hubBefore.toString(), hub.params().toString());
        EXPECT_NE(paramsBefore, test::readFile(paramsPath()));
    }
}

}  // namespace
}  // namespace velto
