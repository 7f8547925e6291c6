// The diagnostic half of GazeService: the raw-data log with its header, and
// the text dump of the whole service.
#include <log/log.h>
#include <utils/SystemClock.h>

#include "modules/GazeServiceModuleInterface.h"
#include "proxdata/ProxDataLogger.h"
#include "sensor/ProximitySensorInterface.h"
#include "service/GazeService.h"
#include "veltoutils/DumpLock.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {
const char kTag[] = "GazeService";
const android::String8 kSeparator("------------------------------\n");
const android::String8 kNewline("\n");
}  // namespace

bool GazeService::startLogging_l(const android::String8& fileName) {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "startLogging() : Prox sensor was null!");
        return false;
    }
    if (mProxDataLogger->isOpen()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Already logging!  Doing nothing!");
        return false;
    }
    if (!mProxDataLogger->open(fileName)) return false;
    mIsLogging.store(true);
    writeHeaderToLog();
    // The log starts with fresh samples.
    flushProxSensorFifo_l();
    __android_log_print(ANDROID_LOG_INFO, kTag, "Adding mProxDataLogger as a ProxDataListener...");
    mProxSensor->addProxDataListener(mProxDataLogger);
    return true;
}

bool GazeService::stopLogging_l() {
    if (mProxSensor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "stopLogging(): prox sensor was NULL!");
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Removing mProxDataLogger as a ProxDataListener...");
    mProxSensor->removeProxDataListener(mProxDataLogger);
    // A sample already in delivery finds the logger closed and is dropped.
    bool closed = mProxDataLogger->close();
    mIsLogging.store(false);
    return closed;
}

bool GazeService::writeHeaderToLog() {
    // The three clocks are read together so the log can be aligned with each.
    const long long epochMillis = Utils::getEpochTimeNanos() / 1000000;
    const long long uptime = android::uptimeMillis();
    const long long elapsed = android::elapsedRealtime();
    const android::String8 logTime = Utils::getEpochTimeHumanReadableString();

    bool ok = true;
    auto write = [&](const android::String8& line) { ok = mProxDataLogger->writeComment(line) && ok; };
    write(android::String8("<HEADER>"));
    write(android::String8::format("GazeServiceVersion: %s", kVersion.string()));
    write(android::String8::format("Device: %s", Utils::getDeviceID().string()));
    write(android::String8::format("EpochTimeMillis: %lld", epochMillis));
    write(android::String8::format("AndroidEventTimeMillis: %lld", uptime));
    write(android::String8::format("AndroidElapsedTimeMillis: %lld", elapsed));
    write(android::String8::format("LogTime: %s", logTime.string()));
    __android_log_print(ANDROID_LOG_INFO, kTag, "File logging time: %s", logTime.string());
    // Each hub parameter lands on a comment line of its own.
    write(mProxSensor->getParameterString(android::String8("\n# ")));
    write(android::String8("</HEADER>"));
    return ok;
}

void GazeService::dump(android::String8& out) {
    DumpLock lock(mLock, kTag);
    out.append(kNewline);
    out.appendFormat("GazeService version %s\n", kVersion.string());
    out.appendFormat("Proximity sensor exists = %s\n", isHardwareAvailable() ? "TRUE" : "FALSE");
    out.appendFormat("Proximity sensor thread status: %s\n", isRunning_l() ? "running" : "stopped");
    out.appendFormat("Elapsed time (secs): %llu\n",
                     static_cast<unsigned long long>(android::elapsedRealtime() - mStartTime.load()) / 1000ULL);
    if (mProxSensor != nullptr) {
        out.appendFormat("Driver name: %s\n", mProxSensor->getNameString().string());
        out.appendFormat("Veltohub versions: %s\n", mProxSensor->getVersionString().string());
        out.appendFormat("Veltohub params:\n%s\n", mProxSensor->getParameterString().string());
    } else {
        out.append("Veltohub: ERROR: Missing!\n");
    }
    out.append(kNewline);
    out.append("Begin dumping all loaded GazeServiceModule's..\n");
    for (size_t i = 0; i < mModules.size(); ++i) {
        GazeServiceModuleInterface* module = mModules[i];
        out.append(kSeparator);
        out.appendFormat("Module: %s  Version: %s\n", module->getName().string(), module->getVersionString().string());
        out.append(module->dump());
        out.append(kNewline);
    }
    out.append("... end dumping GazeServiceModule's.\n");
}

}  // namespace velto
