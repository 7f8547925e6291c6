#include "proxdata/ProxDataLogger.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>

#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:ProxDataLogger";
}

const char ProxDataLogger::kLogDirectory[] = "/data/system/gaze/";

ProxDataLogger::ProxDataLogger() : mFile(nullptr) {}

ProxDataLogger::~ProxDataLogger() { close(); }

bool ProxDataLogger::open(const android::String8& fileName) {
    android::Mutex::Autolock lock(mLock);
    if (mFile != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s called for file: %s when log was already open for file: %s. Not opening new file.\n",
                            "open", fileName.string(), mFileName.string());
        return false;
    }
    if (!Utils::ensurePathExists(kLogDirectory, true)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "... can't create the directory for the file!");
        return false;
    }
    android::String8 name(fileName);
    if (name.length() == 0) {
        name = android::String8::format("prox_data_%s_%lld.txt", Utils::getDeviceID().string(),
                                        static_cast<long long>(Utils::getEpochTimeNanos()));
        __android_log_print(ANDROID_LOG_INFO, kTag, "Got empty log filename, so creating one: %s", name.string());
    }
    android::String8 path = Paths::resolve(kLogDirectory);
    path.appendPath(name);
    path = Paths::resolve(path);  // a name that is itself absolute replaces the directory
    __android_log_print(ANDROID_LOG_INFO, kTag, "Opening log file for write: %s\n", path.string());
    mFile = fopen(path.string(), "w");
    if (mFile == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error! Opening log file for write: %s  Error: %s\n",
                            path.string(), strerror(errno));
        return false;
    }
    // With a generated name mFileName stays empty: it records the name as given.
    mFileName = fileName;
    mOpenPath = path;
    return true;
}

bool ProxDataLogger::close() {
    android::Mutex::Autolock lock(mLock);
    bool ok = false;
    if (mFile != nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Closing log file %s...\n", mFileName.string());
        if (fclose(mFile) != 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "Warning: error closing log file %s.  Error: %s\n",
                                mFileName.string(), strerror(errno));
        } else {
            ok = true;
        }
    }
    mFile = nullptr;
    mFileName.setTo("");
    mOpenPath.setTo("");
    return ok;
}

bool ProxDataLogger::isOpen() const {
    android::Mutex::Autolock lock(mLock);
    return mFile != nullptr;
}

android::String8 ProxDataLogger::getOpenPath() const {
    android::Mutex::Autolock lock(mLock);
    return mOpenPath;
}

bool ProxDataLogger::writeComment(const android::String8& text) {
    android::Mutex::Autolock lock(mLock);
    int printed = mFile != nullptr ? fprintf(mFile, "%c %s\n", '#', text.string()) : -1;
    if (printed != static_cast<int>(text.length()) + 3) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to write comment string to log file: %s\n",
                            mFileName.string());
        return false;
    }
    return true;
}

bool ProxDataLogger::writePacket(const ProxData& data) {
    android::Mutex::Autolock lock(mLock);
    if (mFile == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Got call to write packet when ProxDataLogger was not open!");
        return false;
    }
    return writePacket_l(data);
}

bool ProxDataLogger::writePacket_l(const ProxData& data) {
    // Formatted on the stack: this runs on the sensor thread for every sample.
    // The longest sample line is 28 characters.
    char line[48];
    int len = snprintf(line, sizeof(line), ProxData::kDumpFormat, static_cast<long long>(data.mTimestampNanos),
                       static_cast<int>(data.mData & ProxData::kValueMask), data.flag() ? '1' : '0');
    bool ok = len > 0 && fwrite(line, 1, static_cast<size_t>(len), mFile) == static_cast<size_t>(len) &&
              fputc('\n', mFile) != EOF;
    if (!ok) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to write ProxData packet to log file: %s\n",
                            mFileName.string());
        return false;
    }
    return true;
}

void ProxDataLogger::onProxData(const ProxData& data) {
    android::Mutex::Autolock lock(mLock);
    if (mFile != nullptr) writePacket_l(data);
}

}  // namespace velto
