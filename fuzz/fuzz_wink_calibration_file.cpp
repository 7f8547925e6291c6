// The high-power wink calibration file: "mag_min mag_max dur_min dur_max index".
// Whatever it holds, the ranges derived from it, the detector choice and the
// hub thresholds computed from it must not fault; what loads is finite,
// ordered and names a loaded detector, and hub parameters computed from it
// fit the hub.
#include <math.h>
#include <stdint.h>
#include <stdlib.h>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "fuzz/fuzz_sandbox.h"
#include "tools/gazeeval/ReplaySensor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velto::fuzz;
    sandboxRoot();
    if (!writeUnderRoot("/cal.txt", data, size)) return 0;
    // A hub that accepts every parameter and has no listeners.
    static velto::gazetools::ReplaySensor sensor;
    velto::CalibratedMultiDurationWinkDetector wink(&sensor);
    wink.addDetector(new velto::BoostingDetector(), velto::Interval<float>(280.0f, 500.0f));
    wink.addDetector(new velto::BoostingDetector(), velto::Interval<float>(400.0f, 800.0f));
    // One calibration sample, so that the hub thresholds can be computed.
    wink.startCalibrationInterval();
    const float sample = 1000.0f;
    wink.update(1000000000LL, &sample, 1);
    wink.endCalibrationInterval();

    if (wink.loadHighPowerCalibration("/cal.txt")) {
        const velto::Interval<float> ranges[] = {wink.getCalibrationMagnitudeRange(),
                                                  wink.getCalibrationDurationRangeMs(),
                                                  wink.getAcceptableMagnitudeRange(),
                                                  wink.getAcceptableDurationRangeMs()};
        for (const velto::Interval<float>& r : ranges) {
            if (!isfinite(r.min) || !isfinite(r.max) || r.min > r.max) abort();
        }
        if (wink.getActiveDetectorIndex() < 0 || wink.getActiveDetectorIndex() >= wink.getNumDetectors()) abort();
        wink.chooseBestDetectorBasedOnCalibrationDuration();
        (void)wink.getActiveDetector();
        velto::BoostingDetector::GestureInfo info;
        info.magnitude = wink.getAcceptableMagnitudeRange().min;
        info.duration = wink.getAcceptableDurationRangeMs().max;
        (void)wink.isWinkConsistentWithCalibration(info);
        velto::MCUParams params;
        if (wink.computeMCUParams(&params) && params.gain > velto::MCUParams::kMaxDetectorGain) abort();
    }
    (void)wink.getDebugString();
    return 0;
}
