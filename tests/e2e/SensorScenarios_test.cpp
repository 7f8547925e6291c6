// The hub driver against veltohub-sim, one scenario per process.

#include "sensor/VeltohubProximitySensor.h"
#include "tests/e2e/E2eSupport.h"
#include "tests/harness/Listeners.h"
#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

using e2e::startHub;
using e2e::value;
using e2e::waitFor;
using test::LogCapture;

TEST(SensorScenario, SamplesStreamWithHubTimeStampsWhileADataListenerIsRegistered) {
    hubsim::HubSimProcess sim;
    // At the real rate the hub's FIFO holds 2 s: a loaded machine may stall
    // this process that long before packets are lost.
    startHub(&sim, e2e::scenario("wearer baseline 1200\nwearer sample-loss-per-hour 0\n", 1));
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();
    ASSERT_NE(nullptr, sensor);
    EXPECT_EQ(VeltohubProximitySensor::getInstance(), sensor);
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get pause")) == "1"; }));  // starts paused
    EXPECT_EQ("0", value(sim.command("get passthru_enable")));

    test::SampleRecorder a;
    sensor->addProxDataListener(&a);
    ASSERT_TRUE(waitFor([&] { return a.size() >= 40; }));
    EXPECT_EQ("1", value(sim.command("get passthru_enable")));
    EXPECT_EQ("0", value(sim.command("get pause")));
    // The data lock stays; the event thread's own lock comes and goes with
    // each of its turns.
    EXPECT_TRUE(waitFor([&] { return sim.command("wakelocks") == "OK Veltohub_ProxData_WakeLock"; }));

    // Hub time stamps, one sample period (31.25 ms) apart, give or take jitter;
    // a loaded machine may let the hub's FIFO overflow now and then.
    std::vector<ProxData> seen = a.all();
    size_t regular = 0;
    for (size_t i = 1; i < seen.size(); ++i) {
        const int64_t step = seen[i].mTimestampNanos - seen[i - 1].mTimestampNanos;
        EXPECT_GT(step, 20000000) << i;  // never repeated or out of order
        regular += step > 25000000 && step < 40000000;
        EXPECT_GT(static_cast<int>(seen[i].mData & 0x3FFF), 600) << i;  // worn: the wearer's baseline
    }
    EXPECT_GE(regular * 10, (seen.size() - 1) * 9);

    // The last listener gone, the hub stops and pauses (the bookkeeping of
    // several listeners is VeltohubSensorTest's).
    sensor->removeProxDataListener(&a);
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get passthru_enable")) == "0"; }));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get pause")) == "1"; }));
    EXPECT_TRUE(waitFor([&] { return sim.command("wakelocks") == "OK"; }));
}

TEST(SensorScenario, DonDoffAndLowPowerWinkInterruptsReachTheirListeners) {
    hubsim::HubSimProcess sim;
    startHub(&sim, e2e::scenario("wearer baseline 1200\nwearer wink-amp 300\nstart off\n", 4));
    VeltohubProximitySensor::setHubRecoveryEnabled(true);  // for the vanishing hub at the end
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();
    ASSERT_NE(nullptr, sensor);
    test::InterruptRecorder hub;
    sensor->addDonDoffListener(&hub, true);  // told the last known state at once
    sensor->addLowPowerWinkListener(&hub);
    EXPECT_EQ(std::vector<bool>({false}), hub.donned.all());
    ASSERT_TRUE(waitFor([&] { return value(sim.command("get don_doff_enable")) == "1"; }));
    EXPECT_EQ("1", value(sim.command("get wink_enable")));
    EXPECT_EQ("1", value(sim.command("get wink_flag_enable")));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get pause")) == "0"; }));

    ASSERT_EQ(0u, sim.command("don").find("OK"));
    ASSERT_TRUE(waitFor([&] { return hub.donned.all().size() == 2; }));
    EXPECT_TRUE(hub.donned.all().back());
    // The wearer can wink once the device has settled on the head.
    ASSERT_TRUE(waitFor([&] { return sim.command("wink 450ms").find("OK") == 0; }));
    EXPECT_TRUE(waitFor([&] { return hub.winks.load() >= 1; }));
    ASSERT_TRUE(waitFor([&] { return sim.command("doff").find("OK") == 0; }));  // after the wink
    ASSERT_TRUE(waitFor([&] { return hub.donned.all().size() == 3; }));
    EXPECT_FALSE(hub.donned.all().back());

    sensor->removeDonDoffListener(&hub);
    sensor->removeLowPowerWinkListener(&hub);
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get don_doff_enable")) == "0"; }));
    EXPECT_EQ("0", value(sim.command("get wink_enable")));
    EXPECT_TRUE(waitFor([&] { return value(sim.command("get pause")) == "1"; }));

    // The hub goes away: with hub recovery its broken files are dropped from
    // the poll set instead of waking the thread without end.
    ASSERT_TRUE(sim.stop());
    EXPECT_TRUE(waitFor([&] { return LogCapture::count("no longer polled.") == 2; }));
    const size_t handled = LogCapture::count("interrupt!");
    usleep(300000);
    EXPECT_EQ(handled, LogCapture::count("interrupt!"));
}

TEST(SensorScenario, AnOlderHubIsFlashed) {
    hubsim::HubSimProcess sim;
    startHub(&sim, e2e::scenario("hub version 3.1\nhub bootloader 5\n", 8));
    ASSERT_NE(nullptr, VeltohubProximitySensor::getInstance());
    EXPECT_TRUE(LogCapture::contains("Updating Veltohub firmware from 3.1 to 4.2"));
    EXPECT_TRUE(LogCapture::contains("Veltohub firmware successfully updated"));
    EXPECT_EQ("4.2", value(sim.command("get version")));
}

}  // namespace
}  // namespace velto
