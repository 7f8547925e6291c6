#ifndef VELTO_GAZEEVAL_BASELINE_H
#define VELTO_GAZEEVAL_BASELINE_H

#include <cstdint>
#include <vector>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// The simple threshold detectors that every cascade is compared with. All
// of them look at the deviation of each reading from the wearer's level, the
// median of the readings from 3 s to 1 s before it, against the recording's
// noise, estimated once per recording from the median absolute difference of
// consecutive readings. A closure is a run of readings more than five noise
// deviations (at least 10 units) above the level.
//
// - Double blink: two closures of at most 500 ms whose starts lie at most
//   700 ms apart, reported when the second ends.
// - Wink: a closure of 250 to 900 ms whose peak lies within 0.7 to 1.5 times
//   the mean peak of the closures of at least 200 ms in the wink calibration
//   span (the three highest), reported when it ends; 1600 ms apart at least.
// - Look at screen: the mean of the last 8 readings above the level by the
//   calibrated look-at-screen threshold for 10 readings in a row; again only
//   after the deviation has fallen below half the threshold.
class ThresholdBaseline {
public:
    explicit ThresholdBaseline(const CorpusRecording& rec);

    std::vector<int64_t> doubleBlinks() const;
    // Nothing without a calibration span (calibration.endNs <= startNs).
    std::vector<int64_t> winks(const Span& calibration) const;
    std::vector<int64_t> looksAtScreen(int64_t fromNs, float threshold) const;

    float noise() const { return mNoise; }

private:
    struct Closure {
        int64_t startNs;
        int64_t endNs;  // time of the first reading back below the threshold
        float peak;     // highest deviation
    };

    const CorpusRecording& mRec;
    std::vector<float> mLevel;  // per sample
    float mNoise;
    std::vector<Closure> mClosures;
};

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_BASELINE_H
