#ifndef VELTO_VELTOHUB_COMMANDS_H
#define VELTO_VELTOHUB_COMMANDS_H

#include "sensor/VeltohubProximitySensor.h"

namespace velto {

// The work that client threads hand to the sensor's event thread.
class VeltohubProximitySensor::BaseCommand : public CommandInterface {
public:
    explicit BaseCommand(VeltohubProximitySensor* sensor) : sensor(sensor) {}

protected:
    VeltohubProximitySensor* sensor;  // not owned
};

class VeltohubProximitySensor::PauseCommand : public BaseCommand {
public:
    PauseCommand(VeltohubProximitySensor* sensor, bool pause) : BaseCommand(sensor), pause(pause) {}
    android::String8 toString() const override;
    void execute() override;

private:
    bool pause;
};

class VeltohubProximitySensor::StreamingControlCommand : public BaseCommand {
public:
    StreamingControlCommand(VeltohubProximitySensor* sensor, bool start) : BaseCommand(sensor), start(start) {}
    android::String8 toString() const override;
    void execute() override;

private:
    bool start;
};

class VeltohubProximitySensor::FlushFifoCommand : public BaseCommand {
public:
    explicit FlushFifoCommand(VeltohubProximitySensor* sensor) : BaseCommand(sensor) {}
    android::String8 toString() const override;
    void execute() override;
};

class VeltohubProximitySensor::StreamHistoricalDataCommand : public BaseCommand {
public:
    StreamHistoricalDataCommand(VeltohubProximitySensor* sensor, const ProxDataListenerInfo& info)
        : BaseCommand(sensor), info(info) {}
    android::String8 toString() const override;
    void execute() override;

private:
    ProxDataListenerInfo info;  // a copy: the registration may change meanwhile
};

}  // namespace velto

#endif  // VELTO_VELTOHUB_COMMANDS_H
