// The text of the hub's attribute files as the sensor reads it: versions,
// thresholds, gain and wink bounds, the hub clock, the debug FIFO and the two
// interrupt files. The input is cut at '|' into the values of the attributes
// below, in order; attributes without a piece are empty. Whatever they hold,
// reading them must not fault, and a parameter record read from them goes
// through the library's sense check like any other.
#include "calibration/MCUParams.h"
#include "fuzz/fuzz_sandbox.h"
#include "sensor/VeltohubProximitySensor.h"

namespace {

const char* const kAttributes[] = {
        "version",       "bootloader_version", "prox_version", "don_threshold", "doff_threshold",
        "don_max_threshold", "detector_gain",  "wink_min",     "wink_max",      "current_timestamp",
        "mcu_debug16",   "don_doff",           "wink",         "name",          "pause",
};
const std::string kDir = "/sys/devices/platform/omap_i2c.4/i2c-4/4-0035/";

class FuzzedSensor : public velto::VeltohubProximitySensor {
public:
    void run() {
        velto::MCUParams params;
        if (getMCUParams(&params)) (void)params.checkValues("the fuzzed hub");
        unsigned short threshold = 0;
        getDonThreshold(&threshold);
        getDoffThreshold(&threshold);
        getDonMaxThreshold(&threshold);
        (void)readCurrentTimestampFromHub();
        (void)getVersionString();
        (void)getParameterString();  // drains mcu_debug16 up to its limit
        checkFirmware(false);
        if (setupPollingStructs()) {
            handleDonDoffInterrupt();
            handleLowPowerWinkInterrupt();
        }
        closePollingStructs();
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        const std::string root = velto::fuzz::sandboxRoot();
        const std::string mk = "mkdir -p " + root + kDir + " " + root + "/system/vendor/firmware";
        if (system(mk.c_str()) != 0) abort();
        // A firmware image at version 3.7, so the version texts are compared.
        static const char kImage[] = "S00600004844521B\nS1130000285F245F2212226A000424290008237C2A\n"
                                     "S10584800307EF\nS9030000FC\n";
        return velto::fuzz::writeUnderRoot("/system/vendor/firmware/veltohub.s19", kImage, strlen(kImage));
    }();
    if (!ready) return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    size_t start = 0;
    for (const char* attribute : kAttributes) {
        const size_t end = start <= input.size() ? input.find('|', start) : std::string::npos;
        const std::string value = start <= input.size() ? input.substr(start, end - start) : std::string();
        if (!velto::fuzz::writeUnderRoot(kDir + attribute, value.data(), value.size())) return 0;
        start = end == std::string::npos ? input.size() + 1 : end + 1;
    }
    FuzzedSensor sensor;
    sensor.run();
    return 0;
}
