// VeltohubProximitySensor: the hub firmware check and update.
#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sensor/VeltohubProximitySensor.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {

const char kTag[] = "GazeService:Veltohub";

// Image lines are read and written in pieces of this many characters.
const int kLineLimit = 79;
// The S1 record at address 0x8480 whose two data bytes are the version.
const char kVersionRecord[] = "S1058480";
// Hub major versions from here on are experimental builds.
const long kExperimentalMajor = 128;

int hexByte(const char* text) {
    char digits[3] = {text[0], text[1], '\0'};
    char* end = nullptr;
    long value = strtol(digits, &end, 16);
    return (end == digits + 2) ? static_cast<int>(value) : -1;
}

}  // namespace

bool VeltohubProximitySensor::downloadFirmware(FILE* image, bool checksumOnly) {
    android::String8 dataPath = getFullPath(mSysfsDir, android::String8("update_fw_data"));
    FILE* data = fopen(dataPath.string(), "w");
    if (data == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error opening file %s", dataPath.string());
        return false;
    }
    if (!writeToSysfsFile(android::String8("update_fw_enable"), android::String8("1"))) {
        fclose(data);
        return false;
    }
    rewind(image);
    char line[kLineLimit + 1];
    while (fgets(line, sizeof(line), image) != nullptr) {
        // One write per piece, as the driver takes one record line per store.
        fputs(line, data);
        fflush(data);
    }
    fclose(data);

    if (!writeToSysfsFile(android::String8("update_fw_enable"), android::String8(checksumOnly ? "254" : "0"))) {
        return false;
    }
    android::String8 status;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "flash_status", &status)) return false;
    if (status != "0") {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error (%s) during veltohub flash/checksum operation", status.string());
        return false;
    }
    return true;
}

bool VeltohubProximitySensor::checkFirmware(bool force) {
    android::String8 imagePath = Paths::resolve(kFirmwarePath);
    FILE* image = fopen(imagePath.string(), "r");
    if (image == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Veltohub firmware file not found");
        return false;
    }

    long fileMajor = 0, fileMinor = 0;
    bool found = false;
    char line[kLineLimit + 1];
    while (!found && fgets(line, sizeof(line), image) != nullptr) {
        if (strncmp(line, kVersionRecord, strlen(kVersionRecord)) != 0) continue;
        const int major = hexByte(line + 8);
        const int minor = hexByte(line + 10);
        if (major >= 0 && minor >= 0) {
            fileMajor = major;
            fileMinor = minor;
            found = true;
        }
    }
    if (!found || (fileMajor == 0 && fileMinor == 0)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Veltohub firmware seems to be corrupt");
        fclose(image);
        return false;
    }

    android::String8 bootloaderText, versionText;
    if (!readInputSysfsRegisterFile(mSysfsDir.string(), "bootloader_version", &bootloaderText) ||
        !readInputSysfsRegisterFile(mSysfsDir.string(), "version", &versionText)) {
        fclose(image);
        return false;
    }
    const long bootloader = strtol(bootloaderText.string(), nullptr, 10);
    long hubMajor = 0, hubMinor = 0;
    if (sscanf(versionText.string(), "%ld.%ld", &hubMajor, &hubMinor) != 2) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error parsing MCU version string %s", versionText.string());
        fclose(image);
        return false;
    }

    if (!force) {
        bool needUpdate = hubMajor != fileMajor || hubMinor != fileMinor;
        // Newer bootloaders can verify the image the hub holds.
        if (bootloader > 4 && !downloadFirmware(image, true)) needUpdate = true;
        if (hubMajor >= kExperimentalMajor) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "WARNING: Veltohub firmware is experimental version %ld.%ld",
                                hubMajor, hubMinor);
            fclose(image);
            return true;
        }
        if (!needUpdate) {
            fclose(image);
            return true;
        }
    }

    __android_log_print(ANDROID_LOG_INFO, kTag, "Updating Veltohub firmware from %s to %ld.%ld", versionText.string(),
                        fileMajor, fileMinor);
    bool ok = false;
    if (downloadFirmware(image, false)) {
        android::String8 status;
        if (readInputSysfsRegisterFile(mSysfsDir.string(), "flash_status", &status)) {
            if (status == "0") {
                __android_log_print(ANDROID_LOG_INFO, kTag, "Veltohub firmware successfully updated");
                ok = true;
            } else {
                __android_log_print(ANDROID_LOG_ERROR, kTag, "Error (%s) during veltohub flash operation", status.string());
            }
        }
    }
    fclose(image);
    return ok;
}

}  // namespace velto
