#include "service/GazeService.h"

#include <gtest/gtest.h>
#include <utils/Timers.h>

#include <future>
#include <sstream>
#include <thread>

#include "tests/harness/FakeProximitySensor.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

typedef GazeServiceInterface G;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

TEST(GazeService, GestureNamesAndConversion) {
    const char* names[] = {"WINK", "DOUBLE_WINK", "BLINK", "DOUBLE_BLINK", "DON", "DOFF", "LOOK_AT_SCREEN",
                           "LOOK_AWAY_FROM_SCREEN"};
    for (int g = 0; g < 8; ++g) {
        EXPECT_EQ(android::String8(names[g]), GazeService::eyeGestureAsString8(GazeService::intToEyeGesture(g)));
    }
    EXPECT_EQ(G::LOOK_AWAY_FROM_SCREEN, GazeService::intToEyeGesture(7));
    for (int n : {8, -1, 1000}) EXPECT_EQ(G::NUM_EYE_GESTURES, GazeService::intToEyeGesture(n)) << n;
}

TEST(GazeService, SingletonSendsEveryGestureAsATenMillisecondSpanEndingNow) {
    GazeService* service = GazeService::getInstance();
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(static_cast<G*>(service), G::getInstance());
    EXPECT_TRUE(service->getMasterEnable());
    EXPECT_FALSE(service->isGestureSupported(G::WINK));  // nothing before start
    EXPECT_FALSE(service->start());  // no hub under this root
    EXPECT_FALSE(service->isGestureSupported(G::DON));

    test::ScopedLogCapture capture;
    service->sendEyeGestureEventNow(G::DON);  // no listener yet: dropped with a warning
    EXPECT_TRUE(test::LogCapture::contains("No gaze listener set: DON event dropped.", ANDROID_LOG_WARN));

    android::sp<test::GestureRecorder> listener = new test::GestureRecorder();
    service->setGazeListener(listener);
    const int64_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    for (int g = 0; g < 8; ++g) service->sendEyeGestureEventNow(static_cast<G::EyeGesture>(g));
    const int64_t after = systemTime(SYSTEM_TIME_MONOTONIC);
    const std::vector<test::Gesture> events = listener->all();
    ASSERT_EQ(8u, events.size());
    for (int g = 0; g < 8; ++g) {
        EXPECT_EQ(g, events[g].gesture);
        EXPECT_EQ(10000000, events[g].endNs - events[g].startNs);
        EXPECT_GE(events[g].endNs, before);
        EXPECT_LE(events[g].endNs, after);
    }
    EXPECT_TRUE(test::LogCapture::contains("Sending an EyeGesture event= LOOK_AT_SCREEN  up time now="));
    service->setGazeListener(nullptr);
}

TEST(GazeService, MasterEnableGatesStartAndPausesTheSensor) {
    test::FakeProximitySensor sensor;
    android::sp<GazeService> service = new GazeService(&sensor, android::String8("G123"));
    test::ScopedLogCapture capture;

    service->setMasterEnable(false);
    EXPECT_EQ(std::vector<bool>({true}), sensor.pauseCalls());
    EXPECT_FALSE(service->start());
    EXPECT_FALSE(service->isRunning());
    EXPECT_TRUE(test::LogCapture::contains("Cannot start GazeService, the master enable is false!", ANDROID_LOG_WARN));
    EXPECT_FALSE(service->startCalibrationIntervalForGesture(G::DON));
    service->setMasterEnable(false);  // already paused: no second call
    EXPECT_EQ(1u, sensor.pauseCalls().size());

    service->setMasterEnable(true);
    EXPECT_EQ(std::vector<bool>({true, false}), sensor.pauseCalls());
    EXPECT_TRUE(service->start());
    EXPECT_TRUE(service->isRunning());
    const android::String8 donModule = service->getModuleNameForEyeGesture(G::DON);
    test::LogCapture::clear();
    EXPECT_TRUE(service->start());  // again: nothing is created or loaded a second time
    EXPECT_EQ(0u, test::LogCapture::lines().size()) << test::LogCapture::dump();
    EXPECT_EQ(donModule, service->getModuleNameForEyeGesture(G::DON));

    // Without a sensor there is nothing to pause.
    android::sp<GazeService> bare = new GazeService(nullptr, android::String8(""));
    bare->setMasterEnable(false);
    EXPECT_TRUE(test::LogCapture::contains("Error: null prox sensor?!", ANDROID_LOG_ERROR));
}

TEST(GazeService, LoggingWritesAHeaderThenSamplesAndFollowsThePause) {
    test::FakeProximitySensor sensor;
    android::sp<GazeService> service = new GazeService(&sensor, android::String8("G123"));
    test::ScopedLogCapture capture;
    EXPECT_FALSE(service->stopLogging());
    EXPECT_TRUE(test::LogCapture::contains("stopLogging called but we are not currently logging."));

    ASSERT_TRUE(service->startLogging(android::String8("service_log.txt")));
    EXPECT_TRUE(service->isLogging());
    EXPECT_EQ(1, sensor.flushCount());  // the log starts with fresh samples
    EXPECT_FALSE(service->startLogging(android::String8("second.txt")));
    EXPECT_TRUE(test::LogCapture::contains("Already logging... ignoring new call to startLogging..."));
    sensor.deliverSample(0x4123, 1000);
    sensor.deliverSample(0x0042, 2000);

    // Pausing closes the log; resuming opens a new one with a fresh header.
    service->setMasterEnable(false);
    EXPECT_FALSE(service->isLogging());
    EXPECT_EQ(0u, sensor.numDataListeners());
    sensor.deliverSample(7, 3000);  // not logged anywhere
    service->setMasterEnable(true);
    EXPECT_TRUE(service->isLogging());
    EXPECT_TRUE(test::LogCapture::contains("GazeService is resuming and is starting a new log..."));
    EXPECT_TRUE(service->stopLogging());
    EXPECT_FALSE(service->isLogging());

    std::vector<std::string> log = lines(test::readFile(test::underRoot("/data/system/gaze/service_log.txt")));
    ASSERT_GE(log.size(), 12u);
    EXPECT_EQ("# <HEADER>", log[0]);
    EXPECT_EQ("# GazeServiceVersion: 0.12.1", log[1]);
    EXPECT_EQ(0u, log[2].find("# Device: "));
    EXPECT_EQ(0u, log[3].find("# EpochTimeMillis: "));
    EXPECT_EQ(0u, log[4].find("# AndroidEventTimeMillis: "));
    EXPECT_EQ(0u, log[5].find("# AndroidElapsedTimeMillis: "));
    EXPECT_EQ(0u, log[6].find("# LogTime: "));
    EXPECT_EQ("# \t(Param: don_threshold = \"450\")", log[7]);  // one hub parameter per comment line
    EXPECT_EQ("# </HEADER>", log[log.size() - 3]);
    EXPECT_EQ("1000 291 1", log[log.size() - 2]);
    EXPECT_EQ("2000 66 0", log[log.size() - 1]);
}

// A sensor whose setPause blocks until released, so a test can hold the
// service lock in another thread.
struct BlockingSensor : public test::FakeProximitySensor {
    std::promise<void> entered;
    std::promise<void> release;
    void setPause(bool pause) override {
        entered.set_value();
        release.get_future().wait();
        test::FakeProximitySensor::setPause(pause);
    }
};

TEST(GazeService, DumpStillAnswersWhileAnotherThreadHoldsTheLock) {
    BlockingSensor sensor;
    android::sp<GazeService> service = new GazeService(&sensor, android::String8("G123"));
    std::thread holder([&] { service->setMasterEnable(false); });
    sensor.entered.get_future().wait();

    test::ScopedLogCapture capture;
    EXPECT_FALSE(service->stopLogging());  // answered without waiting for the lock
    android::String8 out;
    service->dump(out);
    sensor.release.set_value();
    holder.join();

    EXPECT_TRUE(test::LogCapture::contains("WARNING: dump() failed to acquire lock -- output may be an inconsistent view."));
    const std::string text = out.string();
    EXPECT_NE(std::string::npos, text.find("GazeService version 0.12.1\n"));
    EXPECT_NE(std::string::npos, text.find("Driver name: Fake Proximity Sensor\n"));
    EXPECT_NE(std::string::npos, text.find("Begin dumping all loaded GazeServiceModule's..\n"));
    EXPECT_NE(std::string::npos, text.find("... end dumping GazeServiceModule's.\n"));

    android::sp<GazeService> bare = new GazeService(nullptr, android::String8(""));
    out.setTo("");
    bare->dump(out);
    EXPECT_NE(std::string::npos, std::string(out.string()).find("Veltohub: ERROR: Missing!\n"));
}

TEST(GazeService, HardwareRevisionRule) {
    test::ScopedLogCapture capture;
    EXPECT_TRUE(GazeService::doesHardwareSupportGesture(android::String8("G0001"), G::WINK));
    EXPECT_TRUE(GazeService::doesHardwareSupportGesture(android::String8("g0001"), G::WINK));
    EXPECT_TRUE(GazeService::doesHardwareSupportGesture(android::String8("\x80"), G::DOUBLE_WINK));
    EXPECT_FALSE(GazeService::doesHardwareSupportGesture(android::String8("F0001"), G::WINK));
    EXPECT_TRUE(test::LogCapture::contains("Checking that hardware rev ('F' >= 'G') to run WINK: false"));
    EXPECT_FALSE(GazeService::doesHardwareSupportGesture(android::String8("9"), G::WINK));
    EXPECT_FALSE(GazeService::doesHardwareSupportGesture(android::String8("F"), G::NUM_EYE_GESTURES));

    capture = test::ScopedLogCapture();
    for (int g : {G::DOUBLE_BLINK, G::DON, G::LOOK_AT_SCREEN}) {
        EXPECT_TRUE(GazeService::doesHardwareSupportGesture(android::String8(""), static_cast<G::EyeGesture>(g)));
    }
    EXPECT_FALSE(GazeService::doesHardwareSupportGesture(android::String8(""), G::WINK));
    EXPECT_EQ(4u, test::LogCapture::count("The Velto Serial Number was not able to be read!", ANDROID_LOG_WARN));
    EXPECT_TRUE(test::LogCapture::contains("Checking that hardware rev ('' >= 'G') to run WINK: false"));
}

TEST(GazeService, CallsForGesturesWithoutAModuleFailWithTheirReason) {
    test::FakeProximitySensor sensor;
    android::sp<GazeService> service = new GazeService(&sensor, android::String8("G123"));
    ASSERT_TRUE(service->start());
    test::ScopedLogCapture capture;
    for (G::EyeGesture g : {G::DOUBLE_WINK, G::BLINK, G::LOOK_AWAY_FROM_SCREEN, G::NUM_EYE_GESTURES,
                             static_cast<G::EyeGesture>(99)}) {
        EXPECT_FALSE(service->isGestureSupported(g));
        EXPECT_FALSE(service->startGestureDetector(g, false, -1));
        EXPECT_FALSE(service->stopGestureDetector(g));
        EXPECT_FALSE(service->isGestureDetectorRunning(g));
        EXPECT_FALSE(service->loadCalibrationForGesture(g));
        EXPECT_FALSE(service->applyAndSaveCalibrationForGesture(g));
        EXPECT_FALSE(service->startCalibrationIntervalForGesture(g));
        EXPECT_FALSE(service->endCalibrationIntervalForGesture(g));
        EXPECT_FALSE(service->clearCalibrationForGesture(g));
        EXPECT_FALSE(service->isCalibrationCompleteForGesture(g));
        EXPECT_EQ(android::String8(""), service->getModuleNameForEyeGesture(g));
    }
    EXPECT_TRUE(test::LogCapture::contains("Cannot start module for gesture BLINK... module is NULL!", ANDROID_LOG_ERROR));
    EXPECT_TRUE(test::LogCapture::contains("Can not apply and save calibration for gesture DOUBLE_WINK. Module is NULL."));
    EXPECT_EQ(5u, test::LogCapture::count("Can not check if calibration is complete for gesture"));
}

TEST(GazeService, CalibrationStartsOnFreshSamplesAndNamesTheStepThatFailed) {
    test::FakeProximitySensor sensor;
    android::sp<GazeService> service = new GazeService(&sensor, android::String8("G123"));
    ASSERT_TRUE(service->start());
    test::ScopedLogCapture capture;
    const int flushes = sensor.flushCount();
    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::DON));
    EXPECT_EQ(flushes + 1, sensor.flushCount());
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::DON));
    EXPECT_FALSE(service->applyAndSaveCalibrationForGesture(G::DON));  // no samples: the save fails
    EXPECT_TRUE(test::LogCapture::contains("Could not save calibration for gesture DON (status=1)!", ANDROID_LOG_ERROR));
    // A module without calibration fails the commit and is never asked to save.
    EXPECT_FALSE(service->applyAndSaveCalibrationForGesture(G::DOUBLE_BLINK));
    EXPECT_TRUE(test::LogCapture::contains("Could not commit calibration for gesture DOUBLE_BLINK (status=2)!  Not saving!",
                                           ANDROID_LOG_ERROR));
    EXPECT_FALSE(test::LogCapture::contains("Could not save calibration for gesture DOUBLE_BLINK"));

    ASSERT_TRUE(service->startCalibrationIntervalForGesture(G::DON));
    EXPECT_EQ(flushes + 2, sensor.flushCount());
    for (int i = 0; i < 40; ++i) sensor.deliverSample(i % 2 == 0 ? 300 : 1300, 1000 + i);
    ASSERT_TRUE(service->endCalibrationIntervalForGesture(G::DON));
    test::LogCapture::clear();
    EXPECT_TRUE(service->applyAndSaveCalibrationForGesture(G::DON));
    EXPECT_FALSE(test::LogCapture::contains("Could not"));
    EXPECT_EQ(1007, sensor.params().donThreshold);
    EXPECT_TRUE(service->clearCalibrationForGesture(G::DON));
    EXPECT_EQ(450, sensor.params().donThreshold);
}

}  // namespace
}  // namespace velto
