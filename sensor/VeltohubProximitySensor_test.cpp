#include "sensor/VeltohubProximitySensor.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sensor/VeltohubTestHub.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using test::LogCapture;
using test::PlainFileHub;
using test::TestableSensor;
typedef test::SampleRecorder Recorder;

class VeltohubSensorTest : public ::testing::Test {
protected:
    PlainFileHub hub;
    TestableSensor sensor;
    test::ScopedLogCapture capture;
};

TEST_F(VeltohubSensorTest, DataListenerBookkeepingQueuesTheHubModeChanges) {
    sensor.openPipes();
    Recorder a, b;
    sensor.addProxDataListener(nullptr, 0);
    EXPECT_TRUE(LogCapture::contains("Can not add ProxDataListener. NULL pointer.", ANDROID_LOG_ERROR));
    EXPECT_EQ("", sensor.queuedCommands());

    // The first data listener unpauses, starts streaming and takes the wake lock.
    sensor.addProxDataListener(&a, 0);
    EXPECT_EQ("PauseCommand(false);StreamingControlCommand(true);", sensor.queuedCommands());
    EXPECT_EQ("Veltohub_ProxData_WakeLock", test::readFile(test::underRoot("/sys/power/wake_lock")));
    EXPECT_TRUE(LogCapture::contains("Streaming historical data for 0 ms.  deviceNowNs = 5000000000   deviceHorizonNs = 5000000000"));
    sensor.dropQueuedCommands();

    // A history asks for a replay first; every change queues a pause update.
    sensor.addProxDataListener(&b, 1);
    EXPECT_EQ("StreamHistoricalDataCommand(" + std::to_string(reinterpret_cast<intptr_t>(&b)) +
                      ");PauseCommand(false);",
              sensor.queuedCommands());
    sensor.dropQueuedCommands();

    // Two adjacent entries of one listener: a remove passes over the second.
    sensor.addProxDataListener(&a, 0);
    sensor.removeProxDataListener(&a);  // entries a, b, a: both a's go
    ASSERT_EQ(1u, sensor.mProxDataListeners.size());
    sensor.addProxDataListener(&b, 0);
    sensor.removeProxDataListener(&b);  // entries b, b: adjacent, one stays
    ASSERT_EQ(1u, sensor.mProxDataListeners.size());
    EXPECT_EQ(&b, sensor.mProxDataListeners[0].listener);
    sensor.dropQueuedCommands();

    sensor.removeProxDataListener(&a);  // not registered
    EXPECT_TRUE(LogCapture::contains("FAILED: Removing ProxDataListener.  There are now: 1", ANDROID_LOG_ERROR));
    EXPECT_EQ("PauseCommand(false);", sensor.queuedCommands());
    sensor.dropQueuedCommands();

    sensor.removeProxDataListener(&b);  // the last one: pause, stop streaming, release
    EXPECT_EQ("PauseCommand(true);StreamingControlCommand(false);", sensor.queuedCommands());
    EXPECT_EQ("Veltohub_ProxData_WakeLock", test::readFile(test::underRoot("/sys/power/wake_unlock")));
}

TEST_F(VeltohubSensorTest, LivePathAdmitsTheHorizonReplayOnlyAfterIt) {
    Recorder early, late;
    sensor.addProxDataListener(&early, 0);  // horizon 5.0 s
    PlainFileHub::set("current_timestamp", "9000000000");
    sensor.addProxDataListener(&late, 0);  // horizon 9.0 s
    sensor.dropQueuedCommands();

    sensor.dispatchProxData(ProxData(1, 5000000000));  // equal to the first horizon: delivered
    for (int i = 0; i < 20; ++i) sensor.dispatchProxData(ProxData(1, 6000000000 + i));
    EXPECT_EQ(21u, early.size());
    EXPECT_EQ(0u, late.size());
    // One warning for the 1st and the 21st skipped sample.
    EXPECT_EQ(2u, LogCapture::count("ignored by listener with first timestamp 9000000000.", ANDROID_LOG_WARN));

    // Replay: only samples strictly after the horizon, oldest first, repeated
    // and backward steps skipped.
    for (int64_t t : {100, 200, 300, 300, 250, 400}) sensor.mHistoryBuffer.add(ProxData(1, t));
    Recorder replayed;
    VeltohubProximitySensor::ProxDataListenerInfo info{&replayed, 400, 200};
    sensor.invokeListenerWithHistoricalPackets(info);
    EXPECT_EQ(std::vector<int64_t>({300, 400}), replayed.stamps());
    EXPECT_TRUE(LogCapture::contains("Ignore backward timestamp at horizonIndex 1! 250 (this) < 300 (latest)"));
    EXPECT_TRUE(LogCapture::contains("Ignore backward timestamp at horizonIndex 2! 300 (this) < 300 (latest)"));
    EXPECT_TRUE(LogCapture::contains("Streaming 4 historical data packets to listener."));

    // A full ring replays its 66 samples; a negative horizon replays nothing.
    for (int64_t t = 1000; t < 1100; ++t) sensor.mHistoryBuffer.add(ProxData(1, t));
    Recorder all;
    sensor.invokeListenerWithHistoricalPackets({&all, 2000, 0});
    ASSERT_EQ(66u, all.size());
    EXPECT_EQ(1034, all.stamps().front());
    EXPECT_EQ(1099, all.stamps().back());
    Recorder none;
    sensor.invokeListenerWithHistoricalPackets({&none, 5, -1});
    EXPECT_EQ(0u, none.size());
    EXPECT_TRUE(LogCapture::contains("Warning: device timestamps are negative!  Not streaming historical data."));
}

TEST_F(VeltohubSensorTest, PacketsAreReadInBatchesAndNeverPastTheBuffer) {
    // 25 bytes: two packets, the rest dropped.
    test::writeFile(test::underRoot("/dev/veltohub"),
                    PlainFileHub::packet(0x0102030405060708ULL, 0x4123) + PlainFileHub::packet(20, 7) + "12345");
    ASSERT_TRUE(sensor.openDataFile());
    ProxData out;
    ASSERT_TRUE(sensor.readOnePacket(&out));
    EXPECT_EQ(0x0102030405060708LL, out.mTimestampNanos);
    EXPECT_EQ(0x4123u, out.mData);
    ASSERT_TRUE(sensor.readOnePacket(&out));
    EXPECT_EQ(20, out.mTimestampNanos);
    errno = EAGAIN;  // left by an earlier call: an end of file is still a failed read
    EXPECT_FALSE(sensor.readOnePacket(&out));  // end of file
    EXPECT_TRUE(LogCapture::contains("Failed to read a full packet of data!  numRead = 0/640"));

    // A read shorter than a packet, then a failing read: neither yields data.
    test::writeFile(test::underRoot("/dev/veltohub"), "12345");
    sensor.executeFlushFifo();
    EXPECT_FALSE(sensor.readOnePacket(&out));
    unlink(test::underRoot("/dev/veltohub").c_str());
    sensor.executeFlushFifo();  // the device is gone: every read fails
    EXPECT_FALSE(sensor.readOnePacket(&out));
    EXPECT_FALSE(sensor.readOnePacket(&out));
    EXPECT_TRUE(LogCapture::contains("Can't open the raw device! errno=2"));
    test::writeFile(test::underRoot("/dev/veltohub"), PlainFileHub::packet(30, 1));
    sensor.executeFlushFifo();
    ASSERT_TRUE(sensor.readOnePacket(&out));
    EXPECT_EQ(30, out.mTimestampNanos);

    // Streaming delivers each packet (a zero sample after a failed read) and
    // keeps it in the history.
    Recorder r;
    sensor.addProxDataListener(&r, 0);
    sensor.setStreaming(true);
    test::writeFile(test::underRoot("/dev/veltohub"), PlainFileHub::packet(7000000000, 9));
    sensor.executeFlushFifo();
    sensor.handleProxDataInterrupt();
    sensor.handleProxDataInterrupt();
    EXPECT_EQ(std::vector<int64_t>({7000000000}), r.stamps());  // the zero sample lies before the horizon
    ASSERT_EQ(2u, sensor.mHistoryBuffer.size());
    EXPECT_EQ(0, sensor.mHistoryBuffer.getAtDelay(0).mTimestampNanos);
    EXPECT_EQ(0u, sensor.mHistoryBuffer.getAtDelay(0).mData);
    sensor.executeFlushFifo();
    EXPECT_EQ(0u, sensor.mHistoryBuffer.size());
}

TEST_F(VeltohubSensorTest, CommandsRunInQueueOrderFromThePipe) {
    sensor.openPipes();
    Recorder first, second;
    sensor.mHistoryBuffer.add(ProxData(1, 4999999999));
    sensor.addProxDataListener(&first, 10);
    sensor.addProxDataListener(&second, 10);
    sensor.flush();
    // The pipe carries one byte per command; the first byte runs them all.
    EXPECT_EQ(VeltohubProximitySensor::PROCESS_COMMANDS, sensor.readControlSignal());
    sensor.handleControlCommand(VeltohubProximitySensor::PROCESS_COMMANDS);
    EXPECT_EQ("", sensor.queuedCommands());
    EXPECT_EQ(std::vector<int64_t>({4999999999}), first.stamps());
    EXPECT_EQ(std::vector<int64_t>({4999999999}), second.stamps());
    EXPECT_EQ(0u, sensor.mHistoryBuffer.size());  // flushed after both replays
    EXPECT_EQ("1", PlainFileHub::get("passthru_enable"));
    EXPECT_EQ("0", PlainFileHub::get("pause"));

    sensor.handleControlCommand(static_cast<VeltohubProximitySensor::GazeServiceControlCommand>(7));
    EXPECT_TRUE(LogCapture::contains("Unknown command: 7", ANDROID_LOG_ERROR));
}

TEST_F(VeltohubSensorTest, UserPauseOverridesTheListenerCount) {
    sensor.openPipes();
    Recorder r;
    sensor.setPause(true);
    EXPECT_EQ(TRI_STATE_TRUE, sensor.isPaused());
    EXPECT_EQ("PauseCommand(true);", sensor.queuedCommands());
    EXPECT_EQ(1, sensor.processAllCommands());
    EXPECT_EQ("1", PlainFileHub::get("pause"));
    sensor.addProxDataListener(&r, 0);  // paused by the user: no pause update
    EXPECT_EQ("StreamingControlCommand(true);", sensor.queuedCommands());
    sensor.dropQueuedCommands();
    sensor.setPause(false);  // a listener is registered: unpause
    EXPECT_EQ(TRI_STATE_FALSE, sensor.isPaused());
    EXPECT_EQ("PauseCommand(false);", sensor.queuedCommands());
    EXPECT_EQ(1, sensor.processAllCommands());
    EXPECT_EQ(0, sensor.processAllCommands());
    EXPECT_EQ("0", PlainFileHub::get("pause"));
    EXPECT_FALSE(LogCapture::contains("Error setting pause state"));  // both read back as written

    // The hub not taking the pause is reported.
    ::chmod(PlainFileHub::attr("pause").c_str(), 0);
    unlink(PlainFileHub::attr("pause").c_str());
    sensor.setPause(true);
    sensor.processAllCommands();
    EXPECT_TRUE(LogCapture::contains("Error setting pause state to true", ANDROID_LOG_ERROR));
}

TEST_F(VeltohubSensorTest, AttributeAccess) {
    unsigned short threshold = 1;
    EXPECT_TRUE(sensor.getDonThreshold(&threshold));
    EXPECT_EQ(450, threshold);
    PlainFileHub::set("doff_threshold", "0");
    threshold = 77;
    EXPECT_FALSE(sensor.getDoffThreshold(&threshold));  // a zero threshold reads as a failure
    EXPECT_EQ(77, threshold);
    EXPECT_FALSE(sensor.getDonThreshold(nullptr));
    unlink(PlainFileHub::attr("don_max_threshold").c_str());
    EXPECT_FALSE(sensor.getDonMaxThreshold(&threshold));
    PlainFileHub::set("don_max_threshold", "2000");

    MCUParams params;
    params.donThreshold = 1007;
    params.winkMax = 340;
    params.gain = 1;
    ASSERT_TRUE(sensor.setMCUParams(params));
    EXPECT_EQ("1007", PlainFileHub::get("don_threshold"));
    EXPECT_EQ("340", PlainFileHub::get("wink_max"));
    // Any attribute the hub does not take fails the whole write.
    for (const char* node : {"don_threshold", "doff_threshold", "don_max_threshold", "detector_gain", "wink_max"}) {
        const std::string before = PlainFileHub::get(node);
        unlink(PlainFileHub::attr(node).c_str());
        test::makeDirs(PlainFileHub::attr(node));
        EXPECT_FALSE(sensor.setMCUParams(params)) << node;
        rmdir(PlainFileHub::attr(node).c_str());
        PlainFileHub::set(node, before);
    }
    MCUParams back;
    back.gain = 0;
    ASSERT_TRUE(sensor.getMCUParams(&back));
    EXPECT_EQ(1, back.gain);
    EXPECT_EQ(1007, back.donThreshold);
    // A failed read leaves the caller's record as it was; a null value
    // removes the attribute.
    const std::pair<const char*, const char*> broken[] = {{"detector_gain", "-1"}, {"doff_threshold", "0"}, {"wink_max", nullptr}};
    for (const auto& b : broken) {
        const std::string before = PlainFileHub::get(b.first);
        if (b.second != nullptr) PlainFileHub::set(b.first, b.second);
        else unlink(PlainFileHub::attr(b.first).c_str());
        MCUParams untouched;
        untouched.donThreshold = 1;
        untouched.gain = 7;
        untouched.winkMin = 3;
        EXPECT_FALSE(sensor.getMCUParams(&untouched)) << b.first;
        EXPECT_EQ(1, untouched.donThreshold) << b.first;
        EXPECT_EQ(7, untouched.gain) << b.first;
        EXPECT_EQ(3, untouched.winkMin) << b.first;
        PlainFileHub::set(b.first, before);
    }
    PlainFileHub::set("detector_gain", "0");  // the lowest gain is a gain
    ASSERT_TRUE(sensor.getMCUParams(&back));
    EXPECT_EQ(0, back.gain);

    // The debug FIFO stops at the word marked last.
    PlainFileHub::set("mcu_debug16", std::to_string(32768 + 7));
    EXPECT_EQ(android::String8("7 "), sensor.getRawFifoDataString(android::String8(" ")));
    const std::string params_text = sensor.getParameterString().string();
    EXPECT_EQ(0u, params_text.find("\t(Param: name = \"veltohub\")\n\t(Param: pause = \"1\")\n"));
    EXPECT_NE(std::string::npos, params_text.rfind("\n\nRaw Prox Dump\n7\n"));
    unlink(PlainFileHub::attr("irq").c_str());
    EXPECT_NE(std::string::npos, std::string(sensor.getParameterString().string()).find("(Param: irq = \"INVALID\")"));
    EXPECT_EQ(android::String8("Veltohub App version: \t(Param: version = \"3.7\")\nVeltohub Bootloader version: "
                               "\t(Param: bootloader_version = \"4\")\nProximity Sensor version \t(Param: prox_version = \"12\")\n"),
              sensor.getVersionString());
    PlainFileHub::set("mcu_debug16", "0");
    EXPECT_EQ(android::String8(""), sensor.getRawFifoDataString(android::String8(" ")));
}

size_t occurrences(const std::string& text, const std::string& word) {
    size_t n = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++n;
    return n;
}

TEST_F(VeltohubSensorTest, LoopTurnsInterruptsAndStreamingSwitches) {
    sensor.openPipes();
    ASSERT_TRUE(sensor.setupPollingStructs());
    test::InterruptRecorder listener;
    sensor.addLowPowerWinkListener(&listener);
    EXPECT_EQ("1", PlainFileHub::get("wink_enable"));  // the first one turns the hub's detector on

    // Every turn takes the event wake lock once and lets it go once.
    const std::string lockName = VeltohubProximitySensor::kEventWakeLockName;
    for (int turn = 1; turn <= 3; ++turn) {
        sensor.flush();
        ASSERT_TRUE(sensor.executeEventLoopOnceBlocking());
        EXPECT_EQ(static_cast<size_t>(turn), occurrences(test::readFile(test::underRoot("/sys/power/wake_lock")), lockName));
        EXPECT_EQ(static_cast<size_t>(turn), occurrences(test::readFile(test::underRoot("/sys/power/wake_unlock")), lockName));
    }

    // The wink attribute tells a real wink ("1") from a re-arming read ("0").
    sensor.handleLowPowerWinkInterrupt();
    EXPECT_EQ(0, listener.winks.load());
    PlainFileHub::set("wink", "1\n");
    sensor.handleLowPowerWinkInterrupt();
    EXPECT_EQ(1, listener.winks.load());
    sensor.removeLowPowerWinkListener(&listener);
    // The don/doff attribute holds "1\n" or "0\n".
    EXPECT_FALSE(sensor.isDonDoffEnabled());
    sensor.addDonDoffListener(&listener, false);
    EXPECT_TRUE(sensor.isDonDoffEnabled());
    PlainFileHub::set("don_doff", "1\n");
    sensor.handleDonDoffInterrupt();
    PlainFileHub::set("don_doff", "0\n");
    sensor.handleDonDoffInterrupt();
    EXPECT_EQ(std::vector<bool>({true, false}), listener.donned.all());
    EXPECT_FALSE(LogCapture::contains("expected to read 2 bytes"));
    sensor.removeDonDoffListener(&listener);
    EXPECT_FALSE(LogCapture::contains("FAILED: Removing DonDoffListener"));
    sensor.removeDonDoffListener(&listener);
    EXPECT_TRUE(LogCapture::contains("FAILED: Removing DonDoffListener.  There are now: 0", ANDROID_LOG_ERROR));

    // A ready device while not streaming is not read; the warning comes with
    // the first such wake-up and then once in every 1000.
    const char wouldBlock[] = "Read would block since not in passthrough!";
    sensor.handleProxDataInterrupt();
    EXPECT_EQ(1u, LogCapture::count(wouldBlock, ANDROID_LOG_WARN));
    for (int i = 1; i < 1000; ++i) sensor.handleProxDataInterrupt();
    EXPECT_EQ(1u, LogCapture::count(wouldBlock));
    sensor.handleProxDataInterrupt();
    EXPECT_EQ(2u, LogCapture::count(wouldBlock));
    EXPECT_EQ(0u, sensor.mHistoryBuffer.size());

    sensor.startStreamingData();
    EXPECT_TRUE(sensor.isStreamingData());
    EXPECT_EQ("1", PlainFileHub::get("passthru_enable"));
    sensor.stopStreamingData();
    EXPECT_FALSE(sensor.isStreamingData());
    EXPECT_TRUE(sensor.isLowPowerMode());
    EXPECT_EQ("0", PlainFileHub::get("passthru_enable"));
    // A hub that cannot be told: streaming never starts, and a stop still
    // stops the reads.
    unlink(PlainFileHub::attr("passthru_enable").c_str());
    test::makeDirs(PlainFileHub::attr("passthru_enable"));
    sensor.startStreamingData();
    EXPECT_FALSE(sensor.isStreamingData());
    sensor.setStreaming(true);
    sensor.stopStreamingData();
    EXPECT_FALSE(sensor.isStreamingData());
}

TEST_F(VeltohubSensorTest, FirmwareDecisionTable) {
    auto flashed = [] { return LogCapture::count("Updating Veltohub firmware from"); };
    EXPECT_TRUE(sensor.checkFirmware(false));  // 3.7 on both sides, old bootloader: nothing to do
    EXPECT_EQ(0u, flashed());
    EXPECT_EQ("", PlainFileHub::get("update_fw_enable"));

    EXPECT_TRUE(sensor.checkFirmware(true));  // forced
    EXPECT_EQ(1u, flashed());
    EXPECT_EQ("0", PlainFileHub::get("update_fw_enable"));
    EXPECT_EQ(test::readFile(test::underRoot(VeltohubProximitySensor::kFirmwarePath)), PlainFileHub::get("update_fw_data"));

    PlainFileHub::set("version", "3.6");  // older hub
    EXPECT_TRUE(sensor.checkFirmware(false));
    EXPECT_EQ(2u, flashed());
    EXPECT_TRUE(LogCapture::contains("Updating Veltohub firmware from 3.6 to 3.7"));

    PlainFileHub::set("version", "0.8");  // a major version of 0 is a version too
    PlainFileHub::writeImage("S10584800009ED");
    EXPECT_TRUE(sensor.checkFirmware(false));
    EXPECT_TRUE(LogCapture::contains("Updating Veltohub firmware from 0.8 to 0.9"));
    PlainFileHub::writeImage("S10584800400F2");  // and a minor version of 0
    EXPECT_TRUE(sensor.checkFirmware(false));
    EXPECT_TRUE(LogCapture::contains("Updating Veltohub firmware from 0.8 to 4.0"));
    PlainFileHub::writeImage("S10584800307EF");

    PlainFileHub::set("version", "128.1");  // experimental from 128 on: never without force
    EXPECT_TRUE(sensor.checkFirmware(false));
    EXPECT_EQ(4u, flashed());
    EXPECT_TRUE(LogCapture::contains("WARNING: Veltohub firmware is experimental version 128.1", ANDROID_LOG_WARN));

    // A newer bootloader verifies the checksum; a mismatch flashes, and a
    // failing flash is reported.
    PlainFileHub::set("version", "3.7");
    PlainFileHub::set("bootloader_version", "5");
    PlainFileHub::set("flash_status", "17");
    EXPECT_FALSE(sensor.checkFirmware(false));
    EXPECT_TRUE(LogCapture::contains("Error (17) during veltohub flash/checksum operation"));
    EXPECT_EQ(5u, flashed());
    PlainFileHub::set("flash_status", "0");
    unlink(PlainFileHub::attr("update_fw_data").c_str());
    test::makeDirs(PlainFileHub::attr("update_fw_data"));  // the hub takes no image
    EXPECT_FALSE(sensor.checkFirmware(true));
    EXPECT_TRUE(LogCapture::contains("Error opening file "));

    PlainFileHub::set("version", "x");
    EXPECT_FALSE(sensor.checkFirmware(false));
    EXPECT_TRUE(LogCapture::contains("Error parsing MCU version string x"));

    PlainFileHub::writeImage("S10584800000FB");
    EXPECT_FALSE(sensor.checkFirmware(false));
    PlainFileHub::writeImage("S1130000285F245F2212226A000424290008237C2A");
    EXPECT_FALSE(sensor.checkFirmware(false));
    EXPECT_EQ(2u, LogCapture::count("Veltohub firmware seems to be corrupt"));
    unlink(test::underRoot(VeltohubProximitySensor::kFirmwarePath).c_str());
    EXPECT_FALSE(sensor.checkFirmware(false));
    EXPECT_TRUE(LogCapture::contains("Veltohub firmware file not found"));
}

TEST_F(VeltohubSensorTest, AStaleControlPipeIsReusedAndAMissingHubGivesNoInstance) {
    const std::string pipe = test::underRoot(VeltohubProximitySensor::kControlPipePath);
    test::makeDirs(pipe.substr(0, pipe.rfind('/')));
    unlink(pipe.c_str());
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0700));
    struct stat before;
    ASSERT_EQ(0, stat(pipe.c_str(), &before));
    EXPECT_TRUE(sensor.ensureControlPipeExists_l());
    struct stat after;
    ASSERT_EQ(0, stat(pipe.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);

    unlink(PlainFileHub::attr("version").c_str());
    EXPECT_FALSE(VeltohubProximitySensor::existsOnDevice());
    EXPECT_EQ(nullptr, VeltohubProximitySensor::getInstance());
    EXPECT_TRUE(LogCapture::contains("Error: Can't getInstance() on VeltohubProximitySensor since hardware not found!"));
}

}  // namespace
}  // namespace velto
