// The library's own small parameter files: the gaze parameter file (hub
// thresholds, with the old-version upgrade) and the look-at-screen threshold
// file. The first input byte picks the file; the rest is its content. A file
// that loads through the checked paths must hold only values that make sense.
#include <math.h>
#include <stdlib.h>

#include "calibration/MCUParams.h"
#include "fuzz/fuzz_sandbox.h"
#include "modules/LookAtScreenModule.h"

namespace {

const char kCascade[] = "1 4 0.0 0\n1 0.0\n0 3 1 100 0 1 1.0 50\n";
const char kDetectorSet[] = "las_cascade.txt\n";

void checkParameterFile(const char* path) {
    velto::MCUParams params;
    const bool loaded = params.loadFromFile(android::String8(path));
    if (loaded) {
        velto::MCUParams copy = params;
        (void)copy.toString();
        copy.computeWinkParams(copy.winkMax, copy.winkMin);
    }
    velto::MCUParams checked;
    if (!checked.loadCheckedFromFile(android::String8(path))) return;
    // The checked load accepts a subset of what the plain one does, with the
    // same values, and all of them fit the hub.
    if (!loaded || checked.toString() != params.toString() || !checked.checkValues("fuzz") ||
        checked.gain > velto::MCUParams::kMaxDetectorGain || checked.winkMin > checked.winkMax ||
        checked.doffThreshold > checked.donThreshold || checked.donThreshold > checked.donMaxThreshold) {
        abort();
    }
}

void checkThresholdFile(const char* path) {
    velto::LookAtScreenModule module(nullptr, path, "/las_set.txt");
    if (!module.loadBoostingDetectorFromFile()) abort();
    if (module.loadCalibration() != velto::OK) {
        if (module.hasValidCalibration()) abort();
        return;
    }
    // The threshold in force, as the dump prints it.
    const std::string dump = module.dump().string();
    const size_t at = dump.find(" thresh: ");
    if (at == std::string::npos) abort();
    const double thresh = strtod(dump.c_str() + at + 9, nullptr);
    if (!isfinite(thresh) || !(thresh > 0.0)) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready =
            velto::fuzz::writeUnderRoot("/las_cascade.txt", kCascade, strlen(kCascade)) &&
            velto::fuzz::writeUnderRoot("/las_set.txt", kDetectorSet, strlen(kDetectorSet));
    if (!ready || size < 1) return 0;
    const bool laser = (data[0] & 1) != 0;
    const char* path = laser ? "/laser_params.txt" : "/gaze_params.txt";
    if (!velto::fuzz::writeUnderRoot(path, data + 1, size - 1)) return 0;
    if (laser) {
        checkThresholdFile(path);
    } else {
        checkParameterFile(path);
    }
    return 0;
}
