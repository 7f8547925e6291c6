// VeltohubProximitySensor: the control pipe that wakes the event thread and
// the queue of commands that it runs.
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sensor/VeltohubCommands.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:Veltohub";

// Anything else in the pipe's place (a regular file always polls readable and
// reads nothing) would keep the event thread spinning.
bool isFifo(int fd, const android::String8& path) {
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) return true;
    __android_log_print(ANDROID_LOG_ERROR, kTag, "The control pipe %s is not a FIFO; not used.", path.string());
    return false;
}
}  // namespace

bool VeltohubProximitySensor::ensureControlPipeExists_l() {
    android::String8 path = Paths::resolve(kControlPipePath);
    if (!Utils::ensurePathExists(path.string(), false)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Path to the control pipe can't be created: %s", path.string());
        return false;
    }
    // A pipe left by an earlier process is used as it is.
    if (Utils::doesFileExist(path.string())) return true;
    if (mknod(path.string(), S_IFIFO | 0700, 0) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error making fifo: %s  errno=%d", path.string(), errno);
        return false;
    }
    return true;
}

void VeltohubProximitySensor::setupExecutionControlPipe() {
    tearDownExecutionControlPipe();
    if (!ensureControlPipeExists_l()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can't setup the read side of the control thread!");
        return;
    }
    // Read-write, so that neither side waits for the other to open.
    android::String8 path = Paths::resolve(kControlPipePath);
    mExecutionPipeFd = open(path.string(), O_RDWR | O_CLOEXEC);
    if (mExecutionPipeFd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can't open the control pipe: %s  errno=%d", path.string(), errno);
    } else if (mRecovery && !isFifo(mExecutionPipeFd, path)) {
        tearDownExecutionControlPipe();
    }
}

void VeltohubProximitySensor::setupRequestControlPipe() {
    tearDownRequestControlPipe();
    if (!ensureControlPipeExists_l()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can't setup the write side of the control thread!");
        return;
    }
    android::String8 path = Paths::resolve(kControlPipePath);
    // With recovery it never blocks: writers hold both sensor mutexes, and a
    // full pipe already holds enough wake-ups for the thread.
    mRequestPipeFd = open(path.string(), O_RDWR | O_CLOEXEC | (mRecovery ? O_NONBLOCK : 0));
    if (mRequestPipeFd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can't open the control pipe %s  errno=%d", path.string(), errno);
    } else if (mRecovery && !isFifo(mRequestPipeFd, path)) {
        tearDownRequestControlPipe();
    }
}

void VeltohubProximitySensor::tearDownExecutionControlPipe() {
    if (mExecutionPipeFd > 0) {
        close(mExecutionPipeFd);
        mExecutionPipeFd = -1;
    }
}

void VeltohubProximitySensor::tearDownRequestControlPipe() {
    if (mRequestPipeFd > 0) {
        close(mRequestPipeFd);
        mRequestPipeFd = -1;
    }
}

void VeltohubProximitySensor::destroyControlPipe() { remove(Paths::resolve(kControlPipePath).string()); }

void VeltohubProximitySensor::queueControlSignal_l(GazeServiceControlCommand signal) {
    if (signal == INVALID_COMMAND) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot queue an INVALID_COMMAND command!");
        return;
    }
    if (mRequestPipeFd <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error: the veltohub control pipe write/request fd is not open?!");
        return;
    }
    const uint8_t byte = static_cast<uint8_t>(signal);
    ssize_t n = write(mRequestPipeFd, &byte, 1);
    if (n < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error writing command to control pipe.  errno=%d", errno);
    } else if (n == 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Did not write all bytes of control command into the pipe!  Only %d of %d.", 0, 1);
    }
}

VeltohubProximitySensor::GazeServiceControlCommand VeltohubProximitySensor::readControlSignal() {
    uint8_t byte = 0;
    if (read(mExecutionPipeFd, &byte, 1) == 1) return static_cast<GazeServiceControlCommand>(byte);
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Error reading from control pipe: errno=%d", errno);
    return INVALID_COMMAND;
}

void VeltohubProximitySensor::handleControlCommand(GazeServiceControlCommand signal) {
    switch (signal) {
        case INTERRUPT_THREAD:
            break;
        case PROCESS_COMMANDS:
            processAllCommands();
            break;
        default:
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Unknown command: %d", static_cast<int>(signal));
            break;
    }
}

void VeltohubProximitySensor::queueCommand_l(CommandInterface* command) {
    mCommands.push_back(command);
    queueControlSignal_l(PROCESS_COMMANDS);
}

void VeltohubProximitySensor::processOneCommand() {
    CommandInterface* command = nullptr;
    {
        android::Mutex::Autolock lock(mSensorLock);
        if (!mCommands.empty()) {
            command = *mCommands.begin();
            mCommands.erase(mCommands.begin());
        }
    }
    if (command == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unexpected NULL Command!");
        return;
    }
    // Run without the lock: a command may take it itself.
    command->execute();
    delete command;
}

int VeltohubProximitySensor::processAllCommands() {
    for (int done = 0;; ++done) {
        {
            android::Mutex::Autolock lock(mSensorLock);
            if (mCommands.empty()) return done;
        }
        processOneCommand();
    }
}

void VeltohubProximitySensor::requestInterruptThread() {
    android::Mutex::Autolock lock(mSensorLock);
    queueControlSignal_l(INTERRUPT_THREAD);
}

bool VeltohubProximitySensor::requestStartStreamingData_l() {
    queueCommand_l(new StreamingControlCommand(this, true));
    return true;
}

bool VeltohubProximitySensor::requestStopStreamingData_l() {
    queueCommand_l(new StreamingControlCommand(this, false));
    return true;
}

}  // namespace velto
