#include "calibration/MCUParams.h"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

namespace {
const char kTag[] = "GazeService";
}

const android::String8 MCUParams::kCurrentVersion("3.0");
const android::String8 MCUParams::kOldVersion("2.0");
const android::String8 MCUParams::kVersionKey("VERSION");
const android::String8 MCUParams::kDetectorGainKey("GAIN");
const android::String8 MCUParams::kDetectorDonThresholdKey("DON_THRESH");
const android::String8 MCUParams::kDetectorDoffThresholdKey("DOFF_THRESH");
const android::String8 MCUParams::kDetectorDonMaxThresholdKey("DON_MAX_THRESH");
const android::String8 MCUParams::kDetectorWinkMinKey("WINK_MIN");
const android::String8 MCUParams::kDetectorWinkMaxKey("WINK_MAX");
const android::String8 MCUParams::kMcuParamsFilename("/data/system/gaze/gaze_params.txt");

MCUParams::MCUParams()
    : version(kCurrentVersion),
      gain(kDefaultDetectorGain),
      donThreshold(kDefaultDonThreshold),
      doffThreshold(kDefaultDoffThreshold),
      donMaxThreshold(kDefaultDonMaxThreshold),
      winkMin(kDefaultDetectorWinkMin),
      winkMax(kDefaultDetectorWinkMax) {}

bool MCUParams::computeWinkParams(unsigned short unscaledWinkMax, unsigned short unscaledWinkMin) {
    winkMax = unscaledWinkMax;
    gain = kMaxDetectorGain;
    while (winkMax > kMaxDetectorWinkMax) {
        if (gain == 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Max unscaled wink magnitude is too big: %d", unscaledWinkMax);
            return false;
        }
        --gain;
        winkMax = static_cast<uint16_t>(winkMax >> 1);
    }
    winkMin = static_cast<uint16_t>(unscaledWinkMin >> (kMaxDetectorGain - gain));
    return true;
}

android::String8 MCUParams::toString() const {
    return android::String8::format(
            "MCUParams { version: %s  gain: %u  donThresh: %u  doffThresh: %u  donMaxThresh: %u  min: %u  max: %u}",
            version.string(), gain, donThreshold, doffThreshold, donMaxThreshold, winkMin, winkMax);
}

unsigned short MCUParams::getParameter(android::PropertyMap* map, const android::String8& key,
                                       unsigned short defaultValue) {
    int32_t value = 0;
    if (map == nullptr || !map->hasProperty(key) || !map->tryGetProperty(key, value)) return defaultValue;
    return static_cast<unsigned short>(value);
}

void MCUParams::setParameter(android::PropertyMap* map, const android::String8& key, unsigned short value) {
    map->addProperty(key, android::String8::format("%u", value));
}

void MCUParams::setParameter(android::PropertyMap* map, const android::String8& key, const android::String8& value) {
    map->addProperty(key, value);
}

bool MCUParams::loadFromFile(const android::String8& path) {
    android::String8 resolved = Paths::resolve(path);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Load Gaze params from file: %s", resolved.string());

    // A missing or unreadable file is the common case (no calibration yet):
    // answer it here with one line rather than through the parser's own errors.
    android::PropertyMap* map = nullptr;
    if (access(resolved.string(), R_OK) != 0 || android::PropertyMap::load(resolved, &map) != android::OK ||
        map == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot read the property map of gaze params: %s",
                            resolved.string());
        delete map;
        return false;
    }

    bool ok = false;
    android::String8 fileVersion;
    if (!map->tryGetProperty(kVersionKey, fileVersion)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot get version key: %s so cannot load.", kVersionKey.string());
    } else {
        version = fileVersion;
        if (version != kCurrentVersion && version != kOldVersion) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Unsupported version: %s", version.string());
        } else {
            gain = static_cast<uint8_t>(getParameter(map, kDetectorGainKey, kDefaultDetectorGain));
            donThreshold = getParameter(map, kDetectorDonThresholdKey, kDefaultDonThreshold);
            doffThreshold = getParameter(map, kDetectorDoffThresholdKey, kDefaultDoffThreshold);
            donMaxThreshold = getParameter(map, kDetectorDonMaxThresholdKey, kDefaultDonMaxThreshold);
            winkMin = getParameter(map, kDetectorWinkMinKey, kDefaultDetectorWinkMin);
            winkMax = getParameter(map, kDetectorWinkMaxKey, kDefaultDetectorWinkMax);
            ok = version == kOldVersion ? upgradeToCurrentVersion() : true;
        }
    }
    delete map;
    return ok;
}

bool MCUParams::upgradeToCurrentVersion() {
    if (version != kOldVersion) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unsupported old version: %s.", version.string());
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Converting params from version %s to version %s. Old params: %s",
                        version.string(), kCurrentVersion.string(), toString().string());
    if (gain == 0) {
        // A 2.0 record stores magnitudes divided by the gain factor; gain 0 has
        // no factor to undo.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unsupported gain %u in a version %s file.", gain,
                            version.string());
        return false;
    }
    const uint16_t unscaledMax = static_cast<uint16_t>((static_cast<int>(winkMax) * 128) / gain);
    const uint16_t unscaledMin = static_cast<uint16_t>((static_cast<int>(winkMin) * 128) / gain);
    if (unscaledMax < winkMax) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "The unscaled wink magnitude (%d) must not be smaller than the down-scaled one (%d). Overflow?",
                            unscaledMax, winkMax);
        return false;
    }
    if (unscaledMin < winkMin) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "The unscaled wink magnitude (%d) must not be smaller than the down-scaled one (%d). Overflow?",
                            unscaledMin, winkMin);
        return false;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "Unscaled wink min=%d, unscaled wink max=%d", unscaledMin, unscaledMax);
    if (!computeWinkParams(unscaledMax, unscaledMin)) return false;
    version = kCurrentVersion;
    __android_log_print(ANDROID_LOG_INFO, kTag, "New params: %s", toString().string());
    return true;
}

bool MCUParams::saveToFile(const android::String8& path) const {
    android::String8 resolved = Paths::resolve(path);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Write Gaze params to file: %s", resolved.string());

    android::PropertyMap map;
    setParameter(&map, kVersionKey, version);
    setParameter(&map, kDetectorGainKey, gain);
    setParameter(&map, kDetectorDonThresholdKey, donThreshold);
    setParameter(&map, kDetectorDoffThresholdKey, doffThreshold);
    setParameter(&map, kDetectorDonMaxThresholdKey, donMaxThreshold);
    setParameter(&map, kDetectorWinkMinKey, winkMin);
    setParameter(&map, kDetectorWinkMaxKey, winkMax);

    // Written beside the target and renamed over it, so that a full disk or a
    // crash never leaves a truncated parameter file.
    android::String8 tmpPath(resolved);
    tmpPath.append(".tmp");
    Utils::ensurePathExists(resolved.string(), false);
    FILE* file = fopen(tmpPath.string(), "w");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot open gaze parameter file: %s for write due to error: %s",
                            resolved.string(), strerror(errno));
        return false;
    }
    bool ok = fputs("# Auto-generated by user calibration.\n", file) >= 0;
    // The map keeps its keys sorted, so the file lists them in key order.
    const android::KeyedVector<android::String8, android::String8>& props = map.getProperties();
    for (size_t i = 0; ok && i < props.size(); ++i) {
        ok = fprintf(file, "%s = %s\n", props.keyAt(i).string(), props.valueAt(i).string()) > 0;
    }
    ok = fflush(file) == 0 && ok;
    ok = fsync(fileno(file)) == 0 && ok;
    ok = fclose(file) == 0 && ok;
    if (ok && rename(tmpPath.string(), resolved.string()) != 0) ok = false;
    if (!ok) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error writing parameter file: %s", resolved.string());
        remove(tmpPath.string());
        return false;
    }
    return true;
}

}  // namespace velto
