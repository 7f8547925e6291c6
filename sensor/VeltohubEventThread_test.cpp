// The sensor with its real event thread, fed through a FIFO that stands in for
// the data device. This binary runs with VELTOGAZE_THREAD_DELAY_MS=0; one test
// unsets it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "sensor/VeltohubTestHub.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using test::PlainFileHub;

struct Counter : public ProximitySensorInterface::ProxDataListener {
    std::atomic<int> samples{0};
    void onProxData(const ProxData&) override { samples.fetch_add(1); }
};

// On each sample it swaps itself for the next listener of its chain, from
// inside its own callback.
struct Swapper : public ProximitySensorInterface::ProxDataListener {
    VeltohubProximitySensor* sensor = nullptr;
    Swapper* next = nullptr;
    std::atomic<int> samples{0};
    void onProxData(const ProxData&) override {
        samples.fetch_add(1);
        sensor->removeProxDataListener(this);
        if (next != nullptr) sensor->addProxDataListener(next, 0);
    }
};

// Puts a FIFO where the data device goes and returns the test's end of it,
// opened read-write first, so the sensor's read-only open does not wait.
int openDeviceFifo() {
    const std::string path = test::underRoot(VeltohubProximitySensor::kDataDevicePath);
    test::makeDirs(path.substr(0, path.rfind('/')));
    unlink(path.c_str());
    mkfifo(path.c_str(), 0600);
    return open(path.c_str(), O_RDWR | O_NONBLOCK);
}

// A FIFO where the data device goes. Streaming, a thread sends a packet every
// half millisecond; quiet, it holds only what the test sends, and can be
// emptied the way a hub empties its FIFO when passthrough goes off and on.
class FifoDevice {
public:
    explicit FifoDevice(bool streaming = true) : mFd(openDeviceFifo()) {
        if (!streaming) return;
        mFeeder = std::thread([this] {
            for (uint64_t t = 6000000000ULL; !mStop.load(); usleep(500)) t += send(t) ? 31250000 : 0;
        });
    }
    ~FifoDevice() {
        mStop.store(true);
        if (mFeeder.joinable()) mFeeder.join();
        close(mFd);
    }
    bool send(uint64_t timestampNs) {
        const std::string packet = PlainFileHub::packet(timestampNs, 500);
        return write(mFd, packet.data(), packet.size()) == 10;
    }
    void drain() {
        char buf[640];
        while (read(mFd, buf, sizeof(buf)) > 0) {
        }
    }

private:
    int mFd;
    std::atomic<bool> mStop{false};
    std::thread mFeeder;
};

// Holds the event thread in its first callback until opened.
struct Gate : public ProximitySensorInterface::ProxDataListener {
    std::atomic<bool> open{false};
    std::atomic<int> samples{0};
    void onProxData(const ProxData&) override {
        samples.fetch_add(1);
        while (!open.load()) usleep(500);
    }
};

// Empties the device from inside the history replay, a command.
struct Drainer : public ProximitySensorInterface::ProxDataListener {
    FifoDevice* device = nullptr;
    std::atomic<int> samples{0};
    void onProxData(const ProxData&) override {
        samples.fetch_add(1);
        device->drain();
    }
};

bool waitFor(const std::atomic<int>& count, int atLeast, int ms) {
    for (int i = 0; i < ms && count.load() < atLeast; ++i) usleep(1000);
    return count.load() >= atLeast;
}

// Stop pauses the hub. A data listener still registered keeps its streaming
// and wake lock through a plain stop; with hub recovery the stop ends both,
// since nobody reads the device any more.
TEST(VeltohubEventThread, StartPreparesTheHubAndStopPausesIt) {
    for (bool recovers : {false, true}) {
        SCOPED_TRACE(recovers ? "with hub recovery" : "without");
        PlainFileHub hub;
        PlainFileHub::set("pause", "0");
        FifoDevice device;
        test::ScopedHubRecovery recovery(recovers);
        VeltohubProximitySensor sensor;
        ASSERT_TRUE(sensor.start());
        EXPECT_EQ("5", PlainFileHub::get("activity_threshold"));
        EXPECT_EQ("1", PlainFileHub::get("pause"));
        // A command's wake-up byte is read off the control pipe, so the idle
        // thread sleeps instead of waking at every poll.
        PlainFileHub::set("pause", "0");
        sensor.setPause(true);
        const std::string locks = test::underRoot("/sys/power/wake_lock");
        for (int i = 0; i < 10000 && PlainFileHub::get("pause") != "1"; ++i) usleep(1000);
        ASSERT_EQ("1", PlainFileHub::get("pause"));
        const std::string before = test::readFile(locks);
        usleep(300000);
        EXPECT_LE(test::readFile(locks).size(), before.size() + 3 * strlen(VeltohubProximitySensor::kEventWakeLockName))
                << "the idle event thread keeps waking";
        sensor.setPause(false);

        Counter listener;
        sensor.addProxDataListener(&listener, 0);
        ASSERT_TRUE(waitFor(listener.samples, 1, 5000));
        ASSERT_EQ("1", PlainFileHub::get("passthru_enable"));
        test::writeFile(test::underRoot("/sys/power/wake_unlock"), "");
        sensor.stop();
        EXPECT_EQ("1", PlainFileHub::get("pause"));
        EXPECT_EQ(recovers ? "0" : "1", PlainFileHub::get("passthru_enable"));
        EXPECT_EQ(recovers, test::readFile(test::underRoot("/sys/power/wake_unlock")).find("Veltohub_ProxData_WakeLock") !=
                                    std::string::npos);
    }
}

// With the variable unset, the real start-up delay: the thread handles nothing
// for 15 s, though a listener waits and the hub would stream.
TEST(VeltohubEventThread, TheDefaultDelayHoldsTheFirstTurnForFifteenSeconds) {
    unsetenv("VELTOGAZE_THREAD_DELAY_MS");
    PlainFileHub hub;
    FifoDevice device;
    VeltohubProximitySensor sensor;
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(sensor.start());
    Counter counter;
    sensor.addProxDataListener(&counter, 0);
    sleep(13);
    EXPECT_EQ(0, counter.samples.load());
    EXPECT_EQ("0", PlainFileHub::get("passthru_enable"));  // the queued start has not run
    ASSERT_TRUE(waitFor(counter.samples, 1, 30000));
    EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(), 15.0);
    sensor.removeProxDataListener(&counter);
    sensor.stop();
}

// With hub recovery: the device does not block, so a read that finds it
// empty returns. (Without, a blocking read waits for the hub's next packet.)
TEST(VeltohubEventThread, ADeviceEmptiedByACommandDoesNotHoldTheThreadInARead) {
    PlainFileHub hub;
    FifoDevice device(false);
    test::ScopedHubRecovery recovery(true);
    VeltohubProximitySensor sensor;
    ASSERT_TRUE(sensor.start());
    Gate gate;
    sensor.addProxDataListener(&gate, 0);
    usleep(100000);  // the thread has run the streaming commands and read their signals
    ASSERT_TRUE(device.send(5100000000ULL));
    ASSERT_TRUE(waitFor(gate.samples, 1, 5000));
    // While the thread is held, a packet arrives and a listener asks for
    // history: the next poll finds both, and the replay empties the device.
    ASSERT_TRUE(device.send(5131250000ULL));
    Drainer drainer;
    drainer.device = &device;
    sensor.addProxDataListener(&drainer, 1000);
    gate.open.store(true);
    ASSERT_TRUE(waitFor(drainer.samples, 1, 5000));
    // The thread must come back to its queue with no packet to wake it.
    Counter late;
    sensor.addProxDataListener(&late, 1000);
    const bool served = waitFor(late.samples, 1, 2000);
    EXPECT_TRUE(device.send(5162500000ULL));  // frees a thread stuck in a read, so that it can stop
    EXPECT_TRUE(served) << "the event thread waits in a read of an empty device";
    sensor.removeProxDataListener(&late);
    sensor.removeProxDataListener(&drainer);
    sensor.removeProxDataListener(&gate);
    sensor.stop();
}

TEST(VeltohubEventThread, ListenersChangingFromCallbacksAndClientsNeverDeadlock) {
    PlainFileHub hub;
    FifoDevice device;
    VeltohubProximitySensor sensor;
    ASSERT_TRUE(sensor.start());

    const int kChain = 200;
    std::vector<Swapper> chain(kChain);
    for (int i = 0; i < kChain; ++i) {
        chain[i].sensor = &sensor;
        chain[i].next = i + 1 < kChain ? &chain[i + 1] : nullptr;
    }
    Counter steady;
    // A removed listener may still get the sample being dispatched, so the
    // clients' listeners live as long as the sensor's thread.
    Counter clientListeners[3];
    auto run = std::async(std::launch::async, [&] {
        sensor.addProxDataListener(&steady, 0);
        sensor.addProxDataListener(&chain[0], 0);
        std::vector<std::thread> clients;
        for (int c = 0; c < 3; ++c) {
            clients.emplace_back([&sensor, &clientListeners, c] {
                Counter& mine = clientListeners[c];
                for (int i = 0; i < 300; ++i) {
                    sensor.addProxDataListener(&mine, i % 3 == 0 ? 100 : 0);
                    sensor.removeProxDataListener(&mine);
                    if (i % 50 == 0) sensor.flush();
                }
            });
        }
        for (std::thread& t : clients) t.join();
        // The chain runs to its end, one link per sample.
        while (chain[kChain - 1].samples.load() == 0) usleep(1000);
    });
    ASSERT_EQ(std::future_status::ready, run.wait_for(std::chrono::seconds(60))) << "deadlock";
    EXPECT_GE(steady.samples.load(), kChain);  // one link per sample, the steady one saw them all
    for (const Swapper& s : chain) EXPECT_GE(s.samples.load(), 1);

    sensor.removeProxDataListener(&steady);
    // Once the thread has run the queue, the hub is paused and not streaming.
    for (int i = 0; i < 500 && PlainFileHub::get("passthru_enable") != "0"; ++i) usleep(2000);
    EXPECT_EQ("0", PlainFileHub::get("passthru_enable"));
    EXPECT_EQ("1", PlainFileHub::get("pause"));
    // The plain file collects every name written; the data lock was released.
    EXPECT_NE(std::string::npos, test::readFile(test::underRoot("/sys/power/wake_unlock")).find("Veltohub_ProxData_WakeLock"));
    sensor.stop();
    EXPECT_FALSE(sensor.isStarted());
    EXPECT_FALSE(test::underRoot(VeltohubProximitySensor::kControlPipePath).empty());
    EXPECT_NE(0, access(test::underRoot(VeltohubProximitySensor::kControlPipePath).c_str(), F_OK));
}

}  // namespace
}  // namespace velto
