#include "calibration/MCUParams.h"

#include <errno.h>
#include <log/log.h>
#include <stdlib.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "veltoutils/AtomicFile.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"
#include "veltoutils/ValueCheck.h"

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

    // The map keeps its keys sorted, so the file lists them in key order.
    android::String8 text("# Auto-generated by user calibration.\n");
    const android::KeyedVector<android::String8, android::String8>& props = map.getProperties();
    for (size_t i = 0; i < props.size(); ++i) {
        text.appendFormat("%s = %s\n", props.keyAt(i).string(), props.valueAt(i).string());
    }
    // Written beside the target and renamed over it, so that a full disk or a
    // crash never leaves a truncated parameter file or loses the old one.
    AtomicFile file(path.string());
    if (!file.stage(text) && file.failedStep() == AtomicFile::CREATE) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot open gaze parameter file: %s for write due to error: %s",
                            resolved.string(), strerror(errno));
        return false;
    }
    if (file.failedStep() != AtomicFile::NONE || !file.commit()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error writing parameter file: %s", resolved.string());
        return false;
    }
    return true;
}

bool MCUParams::checkValues(const char* source) const {
    ValueCheck check(kTag, source);
    (void)(check.within(kDetectorGainKey.string(), gain, 0, kMaxDetectorGain) &&
           check.within(kDetectorWinkMaxKey.string(), winkMax, 0, kMaxDetectorWinkMax) &&
           check.ordered("WINK_MIN..WINK_MAX", winkMin, winkMax) &&
           check.ordered("DOFF_THRESH..DON_THRESH", doffThreshold, donThreshold) &&
           check.ordered("DON_THRESH..DON_MAX_THRESH", donThreshold, donMaxThreshold));
    return check.ok();
}

bool MCUParams::loadCheckedFromFile(const android::String8& path) {
    const android::String8 resolved = Paths::resolve(path);
    MCUParams loaded;
    if (!loaded.loadFromFile(path)) return false;

    // The record holds the values narrowed to 16 bits, where -1 has become
    // 65535: the numbers are checked as the file wrote them.
    android::PropertyMap* map = nullptr;
    if (android::PropertyMap::load(resolved, &map) != android::OK || map == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot read the property map of gaze params: %s",
                            resolved.string());
        delete map;
        return false;
    }
    ValueCheck check(kTag, resolved.string());
    const android::String8* const keys[] = {&kDetectorGainKey,           &kDetectorDonThresholdKey,
                                            &kDetectorDoffThresholdKey,  &kDetectorDonMaxThresholdKey,
                                            &kDetectorWinkMinKey,        &kDetectorWinkMaxKey};
    for (const android::String8* key : keys) {
        android::String8 text;
        if (!map->tryGetProperty(*key, text)) continue;  // absent: the default
        char* end = nullptr;
        errno = 0;
        const long long value = strtoll(text.string(), &end, 10);
        if (text.length() == 0 || *end != '\0' || errno != 0) {
            check.refuse(key->string(), text.string(), "not a decimal integer");
            break;
        }
        const long long hi = *key == kDetectorGainKey ? kMaxDetectorGain : 0xFFFF;
        if (!check.within(key->string(), static_cast<double>(value), 0, static_cast<double>(hi))) break;
    }
    delete map;
    if (!check.ok() || !loaded.checkValues(resolved.string())) return false;
    *this = loaded;
    return true;
}

}  // namespace velto
