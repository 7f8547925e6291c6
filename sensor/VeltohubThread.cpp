#include "sensor/VeltohubThread.h"

#include <log/log.h>
#include <unistd.h>

namespace velto {

namespace {
const char kTag[] = "GazeService:Veltohub";
// The delay is slept in slices so that a stop does not wait it out.
const unsigned int kSleepSliceMillis = 20;
}  // namespace

VeltohubProximitySensor::VeltohubThread::VeltohubThread(VeltohubProximitySensor* sensor,
                                                        unsigned int sleepMillisBeforeRun)
    : android::Thread(true), sensor(sensor), sleepMillisBeforeRun(sleepMillisBeforeRun) {}

bool VeltohubProximitySensor::VeltohubThread::threadLoop() {
    if (sensor == nullptr) return false;
    unsigned int remaining = sleepMillisBeforeRun.exchange(0);
    while (remaining > 0 && !exitPending()) {
        unsigned int slice = remaining < kSleepSliceMillis ? remaining : kSleepSliceMillis;
        usleep(slice * 1000);
        remaining -= slice;
    }
    if (exitPending()) return false;
    if (!sensor->executeEventLoopOnceBlocking()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Thread execution received an error: continuing...");
    }
    return true;
}

}  // namespace velto
