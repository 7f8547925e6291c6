#ifndef VELTO_FRAME_RATE_NORMALIZER_H
#define VELTO_FRAME_RATE_NORMALIZER_H

namespace velto {

// Resamples an irregular stream (time in ms, value) onto a fixed grid of
// period 1000/fps ms anchored at the first sample, interpolating linearly
// between the previous real sample and the current one. Detector features
// count in samples, so they need the fixed rate.
class FrameRateNormalizer {
public:
    explicit FrameRateNormalizer(float fps);
    virtual ~FrameRateNormalizer() {}

    // Forgets the anchor: the next sample starts a new grid.
    void reset();

    // Writes the grid values up to timestamp_ms, oldest first, and returns how
    // many (at most max_num_fake_values). Time going backwards resets and
    // returns 0; a repeated time stamp returns 0 and is ignored.
    int updateSignal(double timestamp_ms, float value, float* fake_values, int max_num_fake_values);

    float fps() const { return fps_; }

private:
    float fps_;
    float prev_real_value_;
    double prev_real_frame_timestamp_ms_;  // < 0: no sample yet
    double prev_fake_timestamp_ms_;
};

}  // namespace velto

#endif  // VELTO_FRAME_RATE_NORMALIZER_H
