// The duration-detector list of CalibratedMultiDurationWinkDetector: pairs of
// "min max" and a detector file name. The input is the list file; after a line
// "----" the rest becomes the detector file "f.txt" beside the fixed "a.txt".
// Whatever loads holds finite duration ranges; a list the module's check calls
// well formed loads with ordered ranges.
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "detectors/CalibratedMultiDurationWinkDetector.h"
#include "fuzz/fuzz_sandbox.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!velto::fuzz::writeListAndDetectors(data, size, "/wink.txt")) return 0;
    velto::CalibratedMultiDurationWinkDetector wink(nullptr);
    const bool loaded = wink.loadDetectorFromFile("/wink.txt");
    const bool wellFormed = velto::CalibratedMultiDurationWinkDetector::isDetectorListWellFormed("/wink.txt");
    for (int i = 0; loaded && i < wink.getNumDetectors(); ++i) {
        const velto::Interval<float>& range = wink.getDetectorDurationRangeMs(i);
        if (!isfinite(range.min) || !isfinite(range.max)) abort();
        if (wellFormed && !(range.min >= 0.0f && range.min <= range.max)) abort();
    }
    // Classify with whatever loaded, the first detector taken as active.
    static const char kCalibration[] = "100 120 400 420 0";
    velto::fuzz::writeUnderRoot("/cal.txt", kCalibration, strlen(kCalibration));
    wink.loadHighPowerCalibration("/cal.txt");
    for (int i = 0; i < 40; ++i) {
        const float v = (i % 12 < 4) ? 1150.0f : 1000.0f;
        wink.update(1000000000LL + i * 31250000LL, &v, 1);
    }
    (void)wink.getDebugString();
    return 0;
}
