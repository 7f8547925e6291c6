// The detector-set list file of EyeGestureBoostingDetector. The input is the
// list file; after a line "----" the rest becomes the detector file "f.txt"
// that the list may name beside the fixed "a.txt".
#include <stdint.h>

#include "detectors/EyeGestureBoostingDetector.h"
#include "fuzz/fuzz_sandbox.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!velto::fuzz::writeListAndDetectors(data, size, "/set.txt")) return 0;
    velto::EyeGestureBoostingDetector set(velto::GazeServiceInterface::DOUBLE_BLINK);
    if (set.loadDetectorFromFile("/set.txt")) {
        set.setMagnitudeRange(velto::Interval<float>(10.0f, 400.0f));
        for (int i = 0; i < 40; ++i) {
            const float v = (i % 9 < 3) ? 1300.0f : 1000.0f;
            set.update(1000000000LL + i * 31250000LL, &v, 1);
        }
        (void)set.getDebugString();
    }
    return 0;
}
