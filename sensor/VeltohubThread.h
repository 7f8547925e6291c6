#ifndef VELTO_VELTOHUB_THREAD_H
#define VELTO_VELTOHUB_THREAD_H

#include <utils/Thread.h>

#include <atomic>

#include "sensor/VeltohubProximitySensor.h"

namespace velto {

// The sensor's event thread: after an initial delay, one blocking turn of the
// sensor's event loop per threadLoop() call until asked to exit.
class VeltohubProximitySensor::VeltohubThread : public android::Thread {
public:
    VeltohubThread(VeltohubProximitySensor* sensor, unsigned int sleepMillisBeforeRun);

    // Sets the delay before the next turn.
    void sleepThreadForMillisBeforeRun(unsigned int ms) { sleepMillisBeforeRun.store(ms); }

private:
    bool threadLoop() override;

    VeltohubProximitySensor* sensor;  // not owned
    std::atomic<unsigned int> sleepMillisBeforeRun;
};

}  // namespace velto

#endif  // VELTO_VELTOHUB_THREAD_H
