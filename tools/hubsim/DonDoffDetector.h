#ifndef VELTO_HUBSIM_DONDOFFDETECTOR_H
#define VELTO_HUBSIM_DONDOFFDETECTOR_H

#include <cstdint>

namespace velto {
namespace hubsim {

// The hub's own on-head test. A reading above the don threshold and not
// above the don-max threshold counts as on the head; below the doff
// threshold, or above don-max (something other than a face covers the
// sensor), as off. Between doff and don the state holds: that is the
// hysteresis. A change needs a run of consecutive samples that agree, so a
// single blink or spike does not flip it.
class DonDoffDetector {
public:
    static constexpr int kDebounceSamples = 8;  // a quarter second at 32 Hz

    struct Thresholds {
        uint16_t don = 450;
        uint16_t doff = 400;
        uint16_t donMax = 2000;
    };

    // Starts over as off the head, so a device worn when detection starts is
    // reported donned a quarter second later.
    void reset();
    // Feeds one reading; true when the state changed with it.
    bool update(uint16_t reading, const Thresholds& t);
    bool donned() const { return mDonned; }

private:
    bool mDonned = false;
    int mRun = 0;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_DONDOFFDETECTOR_H
