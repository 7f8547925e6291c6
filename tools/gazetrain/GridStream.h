#ifndef VELTO_GAZETRAIN_GRID_STREAM_H
#define VELTO_GAZETRAIN_GRID_STREAM_H

#include <cstdint>
#include <vector>

#include "tools/signal/Recording.h"

namespace velto {
namespace gazetools {

// A recording as a boosting detector sees it: resampled onto the frame-rate
// grid by the library's FrameRateNormalizer, fed the way BoostingDetector feeds
// it (the detector resets on a gap of more than four frame periods). A
// segment is a run of grid values without such a reset; a detector's window
// never spans two segments.
struct GridStream {
    std::vector<float> values;
    std::vector<double> timesMs;          // grid time of each value, in the recording's ms
    std::vector<uint32_t> segmentStarts;  // index of the first value of each segment, ascending

    size_t size() const { return values.size(); }
    // Index of the first value of the segment that holds value i.
    uint32_t segmentStartOf(size_t i) const;
};

GridStream resampleLikeDetector(const std::vector<signal::RecordedSample>& samples, float fps);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZETRAIN_GRID_STREAM_H
