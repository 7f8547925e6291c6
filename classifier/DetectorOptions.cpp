#include "classifier/DetectorOptions.h"

namespace velto {

android::String8 DetectorOptions::DebugString() const {
    return android::String8::format(
            "frame_rate: %f\npos_sample_magnitude_range=[%f,%f)\nmax_min_sample_value=%f\nmin_max_sample_value=%f\n"
            "min_detection_cluster_size=%d",
            static_cast<double>(frame_rate), static_cast<double>(pos_sample_magnitude_range.min),
            static_cast<double>(pos_sample_magnitude_range.max), static_cast<double>(max_min_sample_value),
            static_cast<double>(min_max_sample_value), min_detection_cluster_size);
}

}  // namespace velto
