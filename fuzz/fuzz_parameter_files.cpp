// The library's own small parameter files: the gaze parameter file (hub
// thresholds, with the old-version upgrade) and the look-at-screen threshold
// file. The first input byte picks the file; the rest is its content.
#include "calibration/MCUParams.h"
#include "fuzz/fuzz_sandbox.h"
#include "modules/LookAtScreenModule.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velto::fuzz::sandboxRoot();
    if (size < 1) return 0;
    const bool laser = (data[0] & 1) != 0;
    const char* path = laser ? "/laser_params.txt" : "/gaze_params.txt";
    if (!velto::fuzz::writeUnderRoot(path, data + 1, size - 1)) return 0;
    if (laser) {
        // Without a detector the threshold is read and then refused.
        velto::LookAtScreenModule module(nullptr, path, "/no_detector_set.txt");
        module.loadCalibration();
    } else {
        velto::MCUParams params;
        if (params.loadFromFile(android::String8(path))) {
            velto::MCUParams copy = params;
            (void)copy.toString();
            copy.computeWinkParams(copy.winkMax, copy.winkMin);
        }
    }
    return 0;
}
