#ifndef VELTO_HUBSIM_LOWPOWERWINKDETECTOR_H
#define VELTO_HUBSIM_LOWPOWERWINKDETECTOR_H

#include <cstdint>

namespace velto {
namespace hubsim {

// The hub's cheap wink detector. It follows the open-eye level with a slow
// average and watches for a rise above it (a closure). Magnitudes are the
// rise scaled by the gain: each gain step below 2 halves them. A closure is a
// low-power wink when it has lasted long enough to be more than a blink and
// its magnitude so far lies in [wink_min, wink_max]; the detector then fires
// once and flags the samples from there to the end of the closure. It is a
// coarse filter: the library confirms each wink on the full stream.
class LowPowerWinkDetector {
public:
    static constexpr int64_t kMinDurationNs = 200000000;   // longer than most blinks
    static constexpr int64_t kMaxDurationNs = 1200000000;  // longer: a level shift, not a wink
    static constexpr int kOnsetFloor = 24;                 // rise that opens a closure (raw units)

    struct Params {
        int gain = 2;
        int winkMin = 0;
        int winkMax = 680;
    };
    struct Result {
        bool flag = false;  // this sample belongs to a detected wink
        bool fire = false;  // the wink was recognised at this sample
    };

    void reset();
    Result update(int64_t tNs, uint16_t reading, const Params& p);

private:
    bool mHaveBaseline = false;
    double mBaseline = 0;
    bool mInClosure = false;
    int64_t mStartNs = 0;
    int mPeakRise = 0;
    bool mFired = false;
    bool mDisqualified = false;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_LOWPOWERWINKDETECTOR_H
