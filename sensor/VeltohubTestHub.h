#ifndef VELTO_VELTOHUB_TEST_HUB_H
#define VELTO_VELTOHUB_TEST_HUB_H

// Test support: a hub made of plain files below the test root, and a sensor
// subclass that opens the driver's internals to tests.
#include <string>

#include "sensor/VeltohubCommands.h"
#include "sensor/VeltohubProximitySensor.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace test {

// Every attribute the driver touches, as plain files with the hub's defaults,
// a firmware image at version 3.7 and the wake-lock files.
struct PlainFileHub {
    PlainFileHub();
    static std::string attr(const std::string& node) {
        return underRoot(std::string(VeltohubProximitySensor::kSysfsDirectory) + node);
    }
    static void set(const std::string& node, const std::string& value) { writeFile(attr(node), value); }
    static std::string get(const std::string& node) { return readFile(attr(node)); }
    static void writeImage(const std::string& versionRecord);
    // Little-endian 10-byte packets.
    static std::string packet(uint64_t timestampNs, uint16_t value);
};

// Hub recovery for the sensors created in its scope.
class ScopedHubRecovery {
public:
    explicit ScopedHubRecovery(bool on) : mWas(VeltohubProximitySensor::isHubRecoveryEnabled()) {
        VeltohubProximitySensor::setHubRecoveryEnabled(on);
    }
    ~ScopedHubRecovery() { VeltohubProximitySensor::setHubRecoveryEnabled(mWas); }

private:
    const bool mWas;
};

class TestableSensor : public VeltohubProximitySensor {
public:
    using VeltohubProximitySensor::dispatchProxData;
    using VeltohubProximitySensor::executeFlushFifo;
    using VeltohubProximitySensor::handleControlCommand;
    using VeltohubProximitySensor::executeEventLoopOnceBlocking;
    using VeltohubProximitySensor::handleDonDoffInterrupt;
    using VeltohubProximitySensor::handleLowPowerWinkInterrupt;
    using VeltohubProximitySensor::handleProxDataInterrupt;
    using VeltohubProximitySensor::setupPollingStructs;
    using VeltohubProximitySensor::startStreamingData;
    using VeltohubProximitySensor::stopStreamingData;
    using VeltohubProximitySensor::invokeListenerWithHistoricalPackets;
    using VeltohubProximitySensor::openDataFile;
    using VeltohubProximitySensor::processAllCommands;
    using VeltohubProximitySensor::readControlSignal;
    using VeltohubProximitySensor::checkFirmware;
    using VeltohubProximitySensor::ensureControlPipeExists_l;
    using VeltohubProximitySensor::mCommands;
    using VeltohubProximitySensor::mHistoryBuffer;
    using VeltohubProximitySensor::mProxDataListeners;
    using VeltohubProximitySensor::mStreaming;
    using VeltohubProximitySensor::checkHubState;
    using VeltohubProximitySensor::retryDataDevice;
    using VeltohubProximitySensor::setPauseInternal;
    using VeltohubProximitySensor::mDeviceRetryAtMs;
    using VeltohubProximitySensor::mLastReopenMs;
    using VeltohubProximitySensor::mPollFds;
    using VeltohubProximitySensor::mExecutionPipeFd;
    using VeltohubProximitySensor::mRequestPipeFd;

    // The two pipe ends, as start() makes them, so queued commands wake nobody
    // but can be read back.
    void openPipes() {
        setupExecutionControlPipe();
        setupRequestControlPipe();
    }
    std::string queuedCommands() {
        std::string out;
        for (auto it = mCommands.begin(); it != mCommands.end(); ++it) out += std::string((*it)->toString().string()) + ";";
        return out;
    }
    void dropQueuedCommands() {
        for (auto it = mCommands.begin(); it != mCommands.end(); ++it) delete *it;
        mCommands.clear();
    }
    void setStreaming(bool on) { mStreaming = on ? 1 : 0; }
    // Hub recovery for this sensor, as if it had been created with it.
    void setRecovery(bool on) { mRecovery = on; }
    using VeltohubProximitySensor::pollTimeoutMillis;
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_VELTOHUB_TEST_HUB_H
