#include "tools/gazetrain/GridStream.h"

#include <algorithm>

#include "classifier/BoostingDetector.h"
#include "classifier/FrameRateNormalizer.h"

namespace velto {
namespace gazetools {

uint32_t GridStream::segmentStartOf(size_t i) const {
    auto it = std::upper_bound(segmentStarts.begin(), segmentStarts.end(), static_cast<uint32_t>(i));
    return it == segmentStarts.begin() ? 0 : *(it - 1);
}

GridStream resampleLikeDetector(const std::vector<signal::RecordedSample>& samples, float fps) {
    GridStream g;
    g.values.reserve(samples.size() + samples.size() / 16);
    g.timesMs.reserve(g.values.capacity());
    FrameRateNormalizer normalizer(fps);
    const double period = 1000.0 / fps;
    const float maxGapMs = 4000.0f / fps;
    double prevMs = 0.0;  // as the detector's, 0 before the first sample
    bool newSegment = true;
    double anchorMs = 0.0;
    uint32_t anchorIndex = 0;
    float fake[BoostingDetector::kMaxNumFakeValues];
    for (const signal::RecordedSample& s : samples) {
        const double t = static_cast<double>(s.timestampNs) * 1e-6;
        if (t - prevMs > maxGapMs) {
            normalizer.reset();
            newSegment = true;
        } else if (t < prevMs) {
            // The normaliser starts a new grid by itself; the detector keeps
            // its window, but no training window should span the jump.
            newSegment = true;
        }
        const float value = static_cast<float>(s.reading & 0x3FFF);
        const int n = normalizer.updateSignal(t, value, fake, BoostingDetector::kMaxNumFakeValues);
        prevMs = t;
        if (n == 0) continue;
        if (newSegment) {
            // The first value of a new grid is the sample itself.
            anchorMs = t;
            anchorIndex = static_cast<uint32_t>(g.values.size());
            g.segmentStarts.push_back(anchorIndex);
            newSegment = false;
        }
        for (int k = 0; k < n; ++k) {
            g.timesMs.push_back(anchorMs + period * static_cast<double>(g.values.size() - anchorIndex));
            g.values.push_back(fake[k]);
        }
    }
    return g;
}

}  // namespace gazetools
}  // namespace velto
