// The hub driver against veltohub-sim, one scenario per process. Streaming
// end to end is the service scenarios' (the log holds every delivered
// packet; the fault rows check the hub idle and no wake lock held after); the
// hub modes and wake lock a data listener sets are VeltohubSensorTest's.

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
