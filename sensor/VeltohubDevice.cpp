// VeltohubProximitySensor: the hub's data device and its attribute files.
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include "sensor/VeltohubProximitySensor.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:Veltohub";

// The debug FIFO never holds more words than this.
const int kMaxRawFifoWords = 512;

// Attributes listed by the parameter dump, in order.
const char* const kParameterNodes[] = {
        "name",          "pause",         "pause_for_audio", "led_drive",       "don_doff_enable", "don_threshold",
        "doff_threshold", "don_max_threshold", "detector_gain", "wink_min",     "wink_max",        "wink_enable",
        "wink_flag_enable", "passthru_enable", "error_code",  "driver_flags",    "last_timestamp",  "irq",
        "irq_status",    "last_irq_status", "irq_timestamp",  "timer_count",     "error_count",
};

}  // namespace

bool VeltohubProximitySensor::existsOnDevice() {
    return Utils::doesFileExist(getFullPath(Paths::resolve(kSysfsDirectory), android::String8("version")).string());
}

android::String8 VeltohubProximitySensor::getFullPath(const android::String8& dir, const android::String8& node) {
    android::String8 path(dir);
    path.appendPath(node);
    return path;
}

bool VeltohubProximitySensor::openDataFile() {
    android::String8 path = Paths::resolve(kDataDevicePath);
    // Non-blocking with recovery: the hub can empty its FIFO (a reset,
    // passthrough toggled) between the poll that saw a packet and the read,
    // and a blocking read would then hold the event thread until the hub
    // sends again.
    int fd = open(path.string(), O_RDONLY | O_CLOEXEC | (mRecovery ? O_NONBLOCK : 0));
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can't open the raw device! errno=%d", errno);
        return false;
    }
    mDataFd = fd;
    mPollFds[0].fd = fd;
    mPollFds[0].events = POLLIN;
    mPollFds[0].revents = 0;
    return true;
}

void VeltohubProximitySensor::closeDataFile() {
    if (mDataFd > 0) {
        close(mDataFd);
        mDataFd = -1;
        mPollFds[0].fd = -1;
        mPollFds[0].events = 0;
        mPollFds[0].revents = 0;
    }
}

bool VeltohubProximitySensor::readOnePacket(ProxData* out) {
    if (mBatchPacketsLeft == 0) {
        ssize_t numRead = read(mDataFd, mBatch, sizeof(mBatch));
        const int err = errno;
        mReadWouldBlock = numRead < 0 && (err == EAGAIN || err == EWOULDBLOCK);
        if (mReadWouldBlock) {
            mBatchPacketsLeft = 0;
            return false;  // the packet that was announced is gone: not a fault
        }
        if (numRead <= 0) {
            // A failed read is an empty batch: the cursor never walks past it.
            // Every failed read is reported; the back-off of the event loop
            // bounds how often that happens on a device that keeps failing.
            __android_log_print(ANDROID_LOG_WARN, kTag, "Failed to read a full packet of data!  numRead = %d/%d, errno=%d",
                                static_cast<int>(numRead), static_cast<int>(sizeof(mBatch)), err);
            mBatchPacketsLeft = 0;
            return false;
        }
        // A trailing partial packet is dropped.
        mBatchPacketsLeft = static_cast<unsigned int>(numRead) / kPacketSize;
        mBatchCursor = 0;
        if (numRead % kPacketSize != 0 && mStreamLog.allow(android::uptimeMillis())) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "Dropped a partial packet: the device gave %d bytes.",
                                static_cast<int>(numRead));
        }
        if (mBatchPacketsLeft == 0) {
            if (mReadFailureLog.allow(android::uptimeMillis())) {
                __android_log_print(ANDROID_LOG_WARN, kTag, "Failed to read a full packet of data!  numRead = %d/%d, errno=%d",
                                    static_cast<int>(numRead), static_cast<int>(sizeof(mBatch)), 0);
            }
            return false;
        }
    }
    const uint8_t* packet = mBatch + mBatchCursor;
    uint64_t timestamp = 0;
    for (int i = 7; i >= 0; --i) timestamp = (timestamp << 8) | packet[i];
    const uint16_t value = static_cast<uint16_t>(packet[8] | (packet[9] << 8));
    ++mPacketCount;
    if (mPacketCount % 100 == 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Read packet %llu: TimeNanos: %llu  Val=%u ",
                            static_cast<unsigned long long>(mPacketCount), static_cast<unsigned long long>(timestamp),
                            value);
    }
    if (out != nullptr) out->set(value, static_cast<long long>(timestamp));
    mBatchCursor += kPacketSize;
    --mBatchPacketsLeft;
    return true;
}

bool VeltohubProximitySensor::writeToSysfsFile(const android::String8& node, const android::String8& value) {
    android::String8 path = getFullPath(mSysfsDir, node);
    if (Utils::writeStringToFile(path.string(), value) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Write failed with errno=%d", errno);
        return false;
    }
    rememberHubSetting(node, value);
    return true;
}

bool VeltohubProximitySensor::readInputSysfsRegisterFile(const char* dir, const char* node,
                                                         android::String8* out) const {
    android::String8 path(dir);
    path.append(node);
    android::String8 text;
    if (Utils::readFileContents(path.string(), false, &text) != 0) {
        const int err = errno;
        if (out != nullptr) out->setTo("");
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to read data from file: %s  errno=%d", path.string(), err);
        return false;
    }
    if (out != nullptr) *out = Utils::stripTrailingNewlines(text);
    return true;
}

android::String8 VeltohubProximitySensor::getParameterStringForSysfsNode(const char* node) const {
    android::String8 value;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), node, &value)) value.setTo("INVALID");
    return android::String8::format("\t(Param: %s = \"%s\")", node, value.string());
}

android::String8 VeltohubProximitySensor::getParameterString(const android::String8& separator) const {
    android::String8 out;
    for (const char* node : kParameterNodes) {
        out.append(getParameterStringForSysfsNode(node));
        out.append(separator);
    }
    out.append(separator);
    out.append("Raw Prox Dump");
    out.append(separator);
    appendRawFifoData(out, separator);
    return out;
}

android::String8 VeltohubProximitySensor::getParameterString() const { return getParameterString(android::String8("\n")); }

void VeltohubProximitySensor::appendRawFifoData(android::String8& out, const android::String8& separator) const {
    for (int i = 0; i < kMaxRawFifoWords; ++i) {
        android::String8 text;
        if (!readInputSysfsRegisterFile(mSysfsDir.string(), "mcu_debug16", &text)) return;
        const unsigned int word = static_cast<unsigned int>(atoi(text.string()));
        if (word == 0) return;
        out.appendFormat("%u", word & 0x7FFF);
        out.append(separator);
        if ((word & 0x8000) != 0) return;  // the FIFO's last word
    }
}

android::String8 VeltohubProximitySensor::getRawFifoDataString(const android::String8& separator) const {
    android::String8 out;
    appendRawFifoData(out, separator);
    return out;
}

android::String8 VeltohubProximitySensor::getVersionString() const {
    return android::String8::format("Veltohub App version: %s\nVeltohub Bootloader version: %s\nProximity Sensor version %s\n",
                                    getParameterStringForSysfsNode("version").string(),
                                    getParameterStringForSysfsNode("bootloader_version").string(),
                                    getParameterStringForSysfsNode("prox_version").string());
}

bool VeltohubProximitySensor::setThreshold(const char* node, unsigned short threshold) {
    return writeToSysfsFile(getFullPath(mSysfsDir, android::String8(node)), android::String8::format("%u", threshold));
}

bool VeltohubProximitySensor::getThreshold(const char* node, unsigned short* threshold) const {
    if (threshold == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "threshold must not be NULL.");
        return false;
    }
    android::String8 text;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), node, &text)) return false;
    const int value = atoi(text.string());
    if (value == 0) return false;  // the hub never holds a zero threshold
    *threshold = static_cast<unsigned short>(value);
    return true;
}

bool VeltohubProximitySensor::setDonThreshold(unsigned short threshold) { return setThreshold("don_threshold", threshold); }
bool VeltohubProximitySensor::setDoffThreshold(unsigned short threshold) { return setThreshold("doff_threshold", threshold); }
bool VeltohubProximitySensor::setDonMaxThreshold(unsigned short threshold) {
    return setThreshold("don_max_threshold", threshold);
}
bool VeltohubProximitySensor::setActivityThreshold(unsigned short threshold) {
    return setThreshold("activity_threshold", threshold);
}
bool VeltohubProximitySensor::getDonThreshold(unsigned short* threshold) const {
    return getThreshold("don_threshold", threshold);
}
bool VeltohubProximitySensor::getDoffThreshold(unsigned short* threshold) const {
    return getThreshold("doff_threshold", threshold);
}
bool VeltohubProximitySensor::getDonMaxThreshold(unsigned short* threshold) const {
    return getThreshold("don_max_threshold", threshold);
}

bool VeltohubProximitySensor::getMCUParams(MCUParams* params) const {
    if (params == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "params must not be NULL.");
        return false;
    }
    unsigned short don = 0, doff = 0, donMax = 0;
    if (!getDonThreshold(&don) || !getDoffThreshold(&doff) || !getDonMaxThreshold(&donMax)) return false;
    android::String8 gainText, minText, maxText;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "detector_gain", &gainText)) return false;
    const int gain = atoi(gainText.string());
    if (gain < 0) return false;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "wink_min", &minText)) return false;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "wink_max", &maxText)) return false;
    params->donThreshold = don;
    params->doffThreshold = doff;
    params->donMaxThreshold = donMax;
    params->gain = static_cast<uint8_t>(gain);
    params->winkMin = static_cast<uint16_t>(atoi(minText.string()));
    params->winkMax = static_cast<uint16_t>(atoi(maxText.string()));
    return true;
}

bool VeltohubProximitySensor::setMCUParams(const MCUParams& params) {
    if (!setDonThreshold(params.donThreshold)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error setting don threshold");
        return false;
    }
    if (!setDoffThreshold(params.doffThreshold)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error setting doff threshold");
        return false;
    }
    if (!setDonMaxThreshold(params.donMaxThreshold)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error setting don max threshold");
        return false;
    }
    return writeToSysfsFile(android::String8("detector_gain"), android::String8::format("%u", params.gain)) &&
           writeToSysfsFile(android::String8("wink_min"), android::String8::format("%u", params.winkMin)) &&
           writeToSysfsFile(android::String8("wink_max"), android::String8::format("%u", params.winkMax));
}

long long VeltohubProximitySensor::readCurrentTimestampFromHub() const {
    android::String8 text;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "current_timestamp", &text)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to read sysfs: %s  with errno: %d", "current_timestamp", errno);
        return -1;
    }
    return strtoll(text.string(), nullptr, 10);
}

bool VeltohubProximitySensor::readDonDoffStateFromFile_l(int fd) const {
    char buffer[64];
    memset(buffer, 0, sizeof(buffer));
    lseek(fd, 0, SEEK_SET);
    // One byte short of the buffer, so it always ends in a zero.
    ssize_t numRead = read(fd, buffer, sizeof(buffer) - 1);
    if (numRead < 0) __android_log_print(ANDROID_LOG_ERROR, kTag, "Error reading don doff fd: errno=%d", errno);
    if (numRead != 2) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "Warning: expected to read 2 bytes but read: %d", static_cast<int>(numRead));
    }
    return buffer[0] == '1';
}

// A failed write is put right by the event thread's check of the hub.
void VeltohubProximitySensor::enableDonDoffInterrupts(bool on) {
    if (!writeToSysfsFile(android::String8("don_doff_enable"), android::String8(on ? "1" : "0"))) {
        mHubStateSuspect.store(true);
    }
}

void VeltohubProximitySensor::enableLowPowerWinkInterrupts(bool on) {
    bool ok = writeToSysfsFile(android::String8("wink_enable"), android::String8(on ? "1" : "0"));
    ok = writeToSysfsFile(android::String8("wink_flag_enable"), android::String8(on ? "1" : "0")) && ok;
    if (!ok) mHubStateSuspect.store(true);
}

}  // namespace velto
