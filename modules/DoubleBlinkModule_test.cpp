#include "modules/DoubleBlinkModule.h"

#include <gtest/gtest.h>

#include "modules/ModuleTestSupport.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using test::LogCapture;
typedef GazeServiceInterface G;

class DoubleBlinkModuleTest : public ::testing::Test {
protected:
    DoubleBlinkModuleTest() : detector(new test::ScriptedDetector(G::DOUBLE_BLINK)), service(new test::RecordingService()) {
        detector->deletions = &deletions;
        module = new DoubleBlinkModule(&sensor, detector, service.get());
    }
    ~DoubleBlinkModuleTest() override {
        delete module;
        EXPECT_EQ(0, deletions);  // a detector handed in is never deleted by the module
        delete detector;
    }
    void feed(int n, uint32_t value = 500) {
        for (int i = 0; i < n; ++i) sensor.deliverSample(value, t += 31250000);
    }

    test::FakeProximitySensor sensor;
    int deletions = 0;
    test::ScriptedDetector* detector;
    android::sp<test::RecordingService> service;
    DoubleBlinkModule* module;
    int64_t t = 1000000000;
    test::ScopedLogCapture capture;
};

TEST_F(DoubleBlinkModuleTest, UncalibratedAnswersAndPlainStart) {
    EXPECT_FALSE(module->requiresCalibration());
    EXPECT_FALSE(module->hasValidCalibration());
    EXPECT_TRUE(module->isCalibrationComplete());
    for (int status : {module->loadCalibration(), module->commitCalibration(), module->clearCalibration(),
                       module->saveCalibration(), module->beginCalibrationInterval(), module->endCalibrationInterval()}) {
        EXPECT_EQ(UNSUPPORTED, status);
    }
    EXPECT_FALSE(module->isRunning());
    EXPECT_EQ(OK, module->start());
    EXPECT_TRUE(module->isRunning());
    EXPECT_EQ(OK, module->start());  // again: warned, not registered twice
    EXPECT_TRUE(LogCapture::contains("start called again while already running.", ANDROID_LOG_WARN));
    EXPECT_EQ(1u, sensor.numDataListeners());
    detector->detectAt = {900};
    feed(3);
    feed(1, 900);
    feed(1, 900);
    EXPECT_EQ(std::vector<G::EyeGesture>({G::DOUBLE_BLINK, G::DOUBLE_BLINK}), service->events);
    EXPECT_EQ(OK, module->stop());
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_EQ(OK, module->stop());
    EXPECT_TRUE(LogCapture::contains("stop called when not running?"));
    EXPECT_EQ(android::String8("DoubleBlinkModule: 1.1.2 Detector: scripted"), module->getVersionString());
}

TEST_F(DoubleBlinkModuleTest, TimeoutCountsSamplesAndStillReportsTheLastOne) {
    EXPECT_EQ(FAILED, module->start(false, 31));  // less than one sample
    EXPECT_EQ(FAILED, module->start(false, -5));
    EXPECT_EQ(2u, LogCapture::count("mTimeoutNumSamples must be positive."));
    EXPECT_FALSE(module->isRunning());

    ASSERT_EQ(OK, module->start(false, 1000));  // 32 samples
    EXPECT_TRUE(LogCapture::contains(">>>>> Start DoubleBlinkModule for 32 samples. <<<<<<"));
    feed(31);
    EXPECT_TRUE(module->isRunning());
    detector->detectAt = {900};
    feed(1, 900);  // the 32nd sample both times out and detects
    EXPECT_FALSE(module->isRunning());
    EXPECT_TRUE(LogCapture::contains("DoubleBlinkModule timeout."));
    EXPECT_EQ(1u, service->events.size());
    EXPECT_EQ(0u, sensor.numDataListeners());

    // A second start while running replaces the remaining count, keeping the buffer.
    ASSERT_EQ(OK, module->start(false, -1));
    feed(5);
    ASSERT_EQ(OK, module->start(false, 100));  // 3 samples from now
    feed(3);
    EXPECT_FALSE(module->isRunning());
    const std::string dump = module->dump().string();
    EXPECT_NE(std::string::npos, dump.find("DoubleBlinkModule status: off\nDoubleBlinkDetector info:\nscripted detector\n"
                                           "Dumping 8 prox data packets...\n"));
}

TEST_F(DoubleBlinkModuleTest, OneShotStopsFromInsideTheCallback) {
    ASSERT_EQ(OK, module->start(true, -1));
    EXPECT_TRUE(LogCapture::contains("Starting DoubleBlinkModule as a oneShot."));
    detector->detectAt = {900};
    feed(2, 900);
    EXPECT_EQ(1u, service->events.size());
    EXPECT_FALSE(module->isRunning());
    EXPECT_EQ(0u, sensor.numDataListeners());
    EXPECT_TRUE(LogCapture::contains("DoubleBlinkModule was started as a oneShot, so stopping on detection..."));
}

TEST(DoubleBlinkModule, WithoutSensorOrDetectorNothingStarts) {
    test::ScopedLogCapture capture;
    DoubleBlinkModule noSensor(nullptr);
    EXPECT_TRUE(LogCapture::contains("The proxSensor cannot be NULL!  The module will be invalid!", ANDROID_LOG_ERROR));
    EXPECT_FALSE(noSensor.canStart());
    EXPECT_EQ(FAILED, noSensor.start(false, -1));

    test::FakeProximitySensor sensor;
    DoubleBlinkModule noFile(&sensor);  // no detector files under this root
    EXPECT_TRUE(LogCapture::contains("Failed to create a detector!  The module will be invalid!"));
    EXPECT_FALSE(noFile.canStart());
    EXPECT_EQ(FAILED, noFile.start(false, -1));
    EXPECT_TRUE(LogCapture::contains("mDetector cannot be NULL!"));
    EXPECT_EQ(android::String8("DoubleBlinkModule: 1.1.2 Detector: NULL"), noFile.getVersionString());
}

}  // namespace
}  // namespace velto
