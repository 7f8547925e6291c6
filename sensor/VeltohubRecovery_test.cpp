// Recovery after hub faults, on a hub of plain files and the event thread's
// handlers called directly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <fstream>

#include "sensor/ProxDataDiscontinuityListener.h"
#include "sensor/VeltohubTestHub.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using test::LogCapture;
using test::PlainFileHub;
using test::TestableSensor;

struct ClockListener : public test::SampleRecorder, public ProxDataDiscontinuityListener {
    std::vector<std::pair<long long, long long>> steps;
    void onProxDataDiscontinuity(long long fromNs, long long toNs) override { steps.emplace_back(fromNs, toNs); }
};

class VeltohubRecoveryTest : public ::testing::Test {
protected:
    VeltohubRecoveryTest() { sensor.setRecovery(true); }
    // Appends packets to the device file and handles one wake-up for each.
    void feed(const std::vector<uint64_t>& stamps) {
        const std::string device = test::underRoot("/dev/veltohub");
        if (access(device.c_str(), F_OK) != 0) test::writeFile(device, "");
        std::ofstream out(device, std::ios::binary | std::ios::app);
        for (uint64_t t : stamps) out << PlainFileHub::packet(t, 800);
        out.close();
        if (sensor.mPollFds[0].fd < 0) sensor.openDataFile();
        for (size_t i = 0; i < stamps.size(); ++i) sensor.handleProxDataInterrupt();
    }
    PlainFileHub hub;
    TestableSensor sensor;
    test::ScopedLogCapture capture;
};

TEST_F(VeltohubRecoveryTest, AClockThatStepsBackRestartsTheListenersOnTheNewClock) {
    ClockListener l;
    sensor.addProxDataListener(&l, 0);  // horizon: the hub clock, 5 s
    sensor.setStreaming(true);
    feed({6000000000, 6031250000, 6031250000, 6000000000});  // a repeat and a late packet: no step
    EXPECT_TRUE(l.steps.empty());
    EXPECT_EQ(4u, l.size());

    // A reset: the clock restarts near zero, below the listener's horizon.
    feed({1000000, 32250000, 63500000});
    ASSERT_EQ(1u, l.steps.size());
    EXPECT_EQ(std::make_pair(6031250000LL, 1000000LL), l.steps[0]);
    // The first sample of the new clock is judged by the old horizon; the
    // next ones reach the listener, and the history holds the new clock only.
    EXPECT_EQ(std::vector<int64_t>({6000000000, 6031250000, 6031250000, 6000000000, 32250000, 63500000}), l.stamps());
    EXPECT_EQ(3u, sensor.mHistoryBuffer.size());
    EXPECT_EQ(1, LogCapture::count("Hub clock went back from 6031250000 ns to 1000000 ns"));
    EXPECT_TRUE(LogCapture::contains("repeats or precedes"));
    sensor.removeProxDataListener(&l);
}

TEST_F(VeltohubRecoveryTest, AFailingDeviceIsReadWithBackOffUntilItReadsAgain) {
    const std::string device = test::underRoot("/dev/veltohub");
    unlink(device.c_str());
    test::makeDirs(device);  // opens, but every read fails (EISDIR)
    ClockListener l;
    sensor.addProxDataListener(&l, 0);
    sensor.setStreaming(true);
    sensor.executeFlushFifo();
    for (int i = 0; i < 200; ++i) sensor.handleProxDataInterrupt();
    // Each failed read still passes a zero sample on, but the device is out
    // of the poll set until its retry; each failed read was reported.
    EXPECT_EQ(0, sensor.mHistoryBuffer.getAtDelay(0).mTimestampNanos);
    EXPECT_EQ(0u, l.size());  // below every horizon
    EXPECT_EQ(-1, sensor.mPollFds[0].fd);
    EXPECT_GE(sensor.mDeviceRetryAtMs, 0);
    EXPECT_EQ(200u, LogCapture::count("Failed to read a full packet of data!"));
    EXPECT_EQ(1u, LogCapture::count("reading it again with back-off"));

    rmdir(device.c_str());
    test::writeFile(device, PlainFileHub::packet(7000000000, 900));
    // The descriptor that failed is kept for a second, then reopened.
    sensor.retryDataDevice(sensor.mLastReopenMs + 999);
    sensor.handleProxDataInterrupt();
    EXPECT_EQ(0u, l.size());
    sensor.retryDataDevice(sensor.mLastReopenMs + 1000);
    EXPECT_GE(sensor.mPollFds[0].fd, 0);
    EXPECT_EQ(-1, sensor.mDeviceRetryAtMs);  // reopened: no retry pending
    sensor.handleProxDataInterrupt();
    EXPECT_EQ(std::vector<int64_t>({7000000000}), l.stamps());
    EXPECT_TRUE(LogCapture::contains("The data device reads again after 201 failed reads"));
    EXPECT_EQ(-1, sensor.mDeviceRetryAtMs);  // no further reopen to drop what the hub queued
    sensor.removeProxDataListener(&l);
}

TEST_F(VeltohubRecoveryTest, TheHubCheckPutsBackWhatAResetOrAFailedWriteLost) {
    ASSERT_TRUE(sensor.setDonThreshold(612));
    // An idle hub is paused and not streaming before and after a reset: only
    // its clock tells.
    PlainFileHub::set("current_timestamp", "9000000000");
    sensor.checkHubState(android::uptimeMillis() - 10000);
    PlainFileHub::set("current_timestamp", "1");
    PlainFileHub::set("don_threshold", "450");
    sensor.checkHubState(android::uptimeMillis() - 5000);
    EXPECT_EQ("612", PlainFileHub::get("don_threshold"));
    sensor.openPipes();
    sensor.setPauseInternal(false);
    sensor.startStreamingData();
    feed({9000000000});
    // The hub resets: defaults everywhere, its clock near zero.
    for (const char* node : {"pause", "current_timestamp"}) PlainFileHub::set(node, "1");
    PlainFileHub::set("passthru_enable", "0");
    PlainFileHub::set("don_threshold", "450");
    sensor.checkHubState(android::uptimeMillis());
    EXPECT_EQ("0", PlainFileHub::get("pause"));
    EXPECT_EQ("1", PlainFileHub::get("passthru_enable"));
    EXPECT_EQ("612", PlainFileHub::get("don_threshold"));
    EXPECT_TRUE(LogCapture::contains("Hub lost its settings (hub reset?; clock at 1 ns, was 9000000000 ns): "
                                     "don_threshold=612 written, pause=0 written, passthru_enable=1 written."));

    // A hub as it should be is left alone, and says nothing; so is one
    // setting changed from outside (no reset, no failed write of ours).
    LogCapture::clear();
    sensor.checkHubState(android::uptimeMillis() + 5000);
    PlainFileHub::set("pause", "1");
    sensor.checkHubState(android::uptimeMillis() + 10000);
    EXPECT_EQ("1", PlainFileHub::get("pause"));
    EXPECT_TRUE(LogCapture::lines().empty());

    // Interrupt enables the hub did not take are written at the next check.
    test::InterruptRecorder listener;
    for (int wink = 0; wink < 2; ++wink) {
        const char* node = wink ? "wink_enable" : "don_doff_enable";
        SCOPED_TRACE(node);
        unlink(PlainFileHub::attr(node).c_str());
        test::makeDirs(PlainFileHub::attr(node));
        if (wink) sensor.addLowPowerWinkListener(&listener);
        else sensor.addDonDoffListener(&listener, false);
        rmdir(PlainFileHub::attr(node).c_str());
        PlainFileHub::set(node, "0");
        if (wink) PlainFileHub::set("wink_flag_enable", "0");
        sensor.checkHubState(android::uptimeMillis() + 20000 + wink * 5000);
        EXPECT_EQ("1", PlainFileHub::get(node));
    }
    EXPECT_EQ("1", PlainFileHub::get("wink_flag_enable"));
    sensor.removeDonDoffListener(&listener);
    sensor.removeLowPowerWinkListener(&listener);

    // Streaming the hub refused to start resumes once the hub streams.
    const std::string passthru = PlainFileHub::attr("passthru_enable");
    unlink(passthru.c_str());
    test::makeDirs(passthru);
    sensor.stopStreamingData();
    sensor.startStreamingData();
    EXPECT_FALSE(sensor.isStreamingData());
    rmdir(passthru.c_str());
    PlainFileHub::set("passthru_enable", "1");
    sensor.checkHubState(android::uptimeMillis() + 40000);
    EXPECT_TRUE(sensor.isStreamingData());
}

TEST_F(VeltohubRecoveryTest, StartFailsCleanlyWhenTheControlPipeIsNotAFifo) {
    test::writeFile(test::underRoot(VeltohubProximitySensor::kControlPipePath), "");
    EXPECT_FALSE(sensor.start());
    EXPECT_FALSE(sensor.isStarted());
    EXPECT_TRUE(LogCapture::contains("is not a FIFO; not used."));
    EXPECT_TRUE(LogCapture::contains("No control pipe: the sensor's event thread is not started."));
    sensor.stop();  // returns: there is no thread to wait for
}

// Without hub recovery the driver is the plain design: a blocking device, a
// poll without time-out, a control pipe used whatever its type, and a clock
// step that is only reported (listeners keep their horizons).
TEST(VeltohubWithoutRecovery, TheDriverKeepsItsPlainBehaviour) {
    PlainFileHub hub;
    test::ScopedLogCapture capture;
    const std::string device = test::underRoot("/dev/veltohub");
    test::writeFile(device, PlainFileHub::packet(6000000000, 800) + PlainFileHub::packet(1000000, 800) +
                                    PlainFileHub::packet(32250000, 800));
    TestableSensor plain, recovering;
    recovering.setRecovery(true);
    for (TestableSensor* s : {&plain, &recovering}) {
        ASSERT_TRUE(s->openDataFile());
        EXPECT_EQ(s == &recovering, (fcntl(s->mPollFds[0].fd, F_GETFL) & O_NONBLOCK) != 0);
    }
    ClockListener l;
    plain.addProxDataListener(&l, 0);
    recovering.addProxDataListener(&l, 0);
    EXPECT_EQ(-1, plain.pollTimeoutMillis(android::uptimeMillis()));
    EXPECT_GT(recovering.pollTimeoutMillis(android::uptimeMillis()), 0);
    recovering.removeProxDataListener(&l);

    plain.executeFlushFifo();
    plain.setStreaming(true);
    for (int i = 0; i < 3; ++i) plain.handleProxDataInterrupt();
    EXPECT_EQ(std::vector<int64_t>({6000000000}), l.stamps());  // the new clock is below the horizon
    EXPECT_TRUE(l.steps.empty());
    EXPECT_EQ(1, LogCapture::count("Hub clock went back from 6000000000 ns to 1000000 ns (hub reset?); hub recovery is off."));
    plain.removeProxDataListener(&l);

    test::writeFile(test::underRoot(VeltohubProximitySensor::kControlPipePath), "");
    plain.openPipes();
    EXPECT_GT(plain.mExecutionPipeFd, 0);
    EXPECT_GT(plain.mRequestPipeFd, 0);
    EXPECT_FALSE(LogCapture::contains("is not a FIFO"));
}

}  // namespace
}  // namespace velto
