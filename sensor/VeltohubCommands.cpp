#include "sensor/VeltohubCommands.h"

namespace velto {

android::String8 VeltohubProximitySensor::PauseCommand::toString() const {
    return android::String8::format("PauseCommand(%s)", pause ? "true" : "false");
}

void VeltohubProximitySensor::PauseCommand::execute() { sensor->setPauseInternal(pause); }

android::String8 VeltohubProximitySensor::StreamingControlCommand::toString() const {
    return android::String8::format("StreamingControlCommand(%s)", start ? "true" : "false");
}

void VeltohubProximitySensor::StreamingControlCommand::execute() {
    if (start) {
        sensor->startStreamingData();
    } else {
        sensor->stopStreamingData();
    }
}

android::String8 VeltohubProximitySensor::FlushFifoCommand::toString() const {
    return android::String8("FlushFifoCommand(void)");
}

void VeltohubProximitySensor::FlushFifoCommand::execute() { sensor->executeFlushFifo(); }

android::String8 VeltohubProximitySensor::StreamHistoricalDataCommand::toString() const {
    return android::String8::format("StreamHistoricalDataCommand(%lld)",
                                    static_cast<long long>(reinterpret_cast<intptr_t>(info.listener)));
}

void VeltohubProximitySensor::StreamHistoricalDataCommand::execute() {
    sensor->invokeListenerWithHistoricalPackets(info);
}

}  // namespace velto
