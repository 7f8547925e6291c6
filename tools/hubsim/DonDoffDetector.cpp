#include "tools/hubsim/DonDoffDetector.h"

namespace velto {
namespace hubsim {

void DonDoffDetector::reset() {
    mDonned = false;
    mRun = 0;
}

bool DonDoffDetector::update(uint16_t reading, const Thresholds& t) {
    const bool onFace = reading > t.don && reading <= t.donMax;
    const bool offFace = reading < t.doff || reading > t.donMax;
    const bool towardsOther = mDonned ? offFace : onFace;
    if (!towardsOther) {
        mRun = 0;
        return false;
    }
    if (++mRun < kDebounceSamples) return false;
    mRun = 0;
    mDonned = !mDonned;
    return true;
}

}  // namespace hubsim
}  // namespace velto
