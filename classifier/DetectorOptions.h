#ifndef VELTO_DETECTOR_OPTIONS_H
#define VELTO_DETECTOR_OPTIONS_H

#include <utils/String8.h>

#include "classifier/Interval.h"

namespace velto {

// How a BoostingDetector runs its cascade: the rate it resamples to, the
// plausibility gates it gives the cascade, and how many of the last 8 windows
// must be positive for a detection.
struct DetectorOptions {
    float frame_rate = 0.0f;
    Interval<float> pos_sample_magnitude_range{0.0f, 20000.0f};
    float max_min_sample_value = 10000.0f;
    float min_max_sample_value = -10000.0f;
    int min_detection_cluster_size = 2;

    android::String8 DebugString() const;
};

}  // namespace velto

#endif  // VELTO_DETECTOR_OPTIONS_H
