#ifndef VELTO_MCU_PARAMS_H
#define VELTO_MCU_PARAMS_H

#include <stdint.h>
#include <utils/PropertyMap.h>
#include <utils/String8.h>

namespace velto {

// The detection parameters that the hub's own microcontroller detectors run
// with: the don/doff thresholds and the gain and magnitude bounds of its
// low-power wink detector. Kept across boots in the gaze parameter file, a
// small property file of "KEY = value" lines.
class MCUParams {
public:
    static const android::String8 kCurrentVersion;  // "3.0"
    static const android::String8 kOldVersion;      // "2.0", upgraded on load
    static constexpr uint8_t kDefaultDetectorGain = 2;
    static constexpr uint8_t kMaxDetectorGain = 2;
    static constexpr uint16_t kDefaultDonThreshold = 450;
    static constexpr uint16_t kDefaultDoffThreshold = 400;
    static constexpr uint16_t kDefaultDonMaxThreshold = 2000;
    static constexpr uint16_t kDefaultDetectorWinkMin = 0;
    static constexpr uint16_t kDefaultDetectorWinkMax = 680;
    // The largest magnitude that the hub accepts at any gain.
    static constexpr uint16_t kMaxDetectorWinkMax = 680;

    static const android::String8 kVersionKey;
    static const android::String8 kDetectorGainKey;
    static const android::String8 kDetectorDonThresholdKey;
    static const android::String8 kDetectorDoffThresholdKey;
    static const android::String8 kDetectorDonMaxThresholdKey;
    static const android::String8 kDetectorWinkMinKey;
    static const android::String8 kDetectorWinkMaxKey;

    // "/data/system/gaze/gaze_params.txt"
    static const android::String8 kMcuParamsFilename;

    MCUParams();

    // Sets gain, winkMax and winkMin from magnitudes measured at full gain:
    // each gain step down halves the magnitudes the hub sees.
    bool computeWinkParams(unsigned short unscaledWinkMax, unsigned short unscaledWinkMin);

    bool loadFromFile(const android::String8& path);
    // loadFromFile with sense checks, for values that are about to reach the
    // hub: every number in the file must be a decimal integer that fits the
    // hub's 16 bits (GAIN 0 to 2), and the record must pass checkValues. A
    // refused file is named in one log line and leaves this record untouched.
    bool loadCheckedFromFile(const android::String8& path);
    // Whether the record makes sense for the hub: gain at most 2, wink bounds
    // ordered and within 680, doff <= don <= don-max. `source` names where
    // the values came from in the one log line of a refusal.
    bool checkValues(const char* source) const;
    // Writes the file atomically: a failed save leaves the previous file intact
    // and no partial file behind.
    bool saveToFile(const android::String8& path) const;

    // Converts a version 2.0 record (magnitudes stored divided by the gain
    // factor) into the current form.
    bool upgradeToCurrentVersion();

    // "MCUParams { version: 3.0  gain: 2  donThresh: ...}"
    android::String8 toString() const;

    static unsigned short getParameter(android::PropertyMap* map, const android::String8& key,
                                       unsigned short defaultValue);
    static void setParameter(android::PropertyMap* map, const android::String8& key, unsigned short value);
    static void setParameter(android::PropertyMap* map, const android::String8& key, const android::String8& value);

    android::String8 version;
    uint8_t gain;
    uint16_t donThreshold;
    uint16_t doffThreshold;
    uint16_t donMaxThreshold;
    uint16_t winkMin;
    uint16_t winkMax;
};

}  // namespace velto

#endif  // VELTO_MCU_PARAMS_H
