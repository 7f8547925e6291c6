#ifndef VELTO_GAZECTL_LEVEL_CHECK_H
#define VELTO_GAZECTL_LEVEL_CHECK_H

#include <string>
#include <vector>

namespace velto {
namespace gazectl {

// Whether the readings of a calibration interval show what the calibration
// needs: two levels, each held for a while, clearly apart relative to the
// noise. The calibrators themselves cluster whatever they are given, so an
// interval without an off-head phase, or without a look at the display,
// would still "calibrate"; this check is what keeps such a result from
// replacing a good one.
class LevelCheck {
public:
    struct Rules {
        double sampleRateHz = 32.0;
        double minHoldSeconds = 1.0;  // each level held at least this long
        float minSeparation = 10.0f;  // least distance of the levels
        float minSeparationInNoise = 4.0f;  // ... and in units of the noise
        // When above 0: the lower level must lie below this reading, or the
        // upper level must be at least this many times the lower.
        float lowerLevelBelow = 0.0f;
        float orUpperTimesLower = 0.0f;
    };

    struct Result {
        bool ok = false;
        std::string reason;  // why not, in words for the wearer
        float lower = 0, upper = 0;  // the two levels (medians of their samples)
        float noise = 0;  // robust spread of the readings around their level
        double lowerHeldSeconds = 0, upperHeldSeconds = 0;
    };

    static Result analyze(const std::vector<float>& readings, const Rules& rules);

    // The longest stretch of `member` flags that holds, when gaps of up to
    // `maxGap` samples inside it are forgiven (a blink during a held level).
    static size_t longestHeld(const std::vector<bool>& member, size_t maxGap);
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_LEVEL_CHECK_H
