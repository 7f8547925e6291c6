// What the hub driver hands the library: the data device's packets (whole,
// partial or none) and the firmware image whose version record decides a
// flash. The input up to a line "----" is the image, the rest the device.
#include "fuzz/fuzz_sandbox.h"
#include "sensor/VeltohubProximitySensor.h"

namespace {

class FuzzedSensor : public velto::VeltohubProximitySensor {
public:
    void run() {
        openDataFile();
        velto::ProxData sample;
        // More calls than packets: the reads past the end must fail cleanly.
        for (int i = 0; i < 80; ++i) readOnePacket(&sample);
        checkFirmware(false);
        checkFirmware(true);
        closeDataFile();
    }
};

void writeHub() {
    static const char* const kAttributes[][2] = {
            {"version", "3.7"}, {"bootloader_version", "5"}, {"update_fw_enable", ""},
            {"update_fw_data", ""}, {"flash_status", "0"}, {"pause", "1"},
    };
    const std::string dir = "/sys/devices/platform/omap_i2c.4/i2c-4/4-0035/";
    const std::string full = velto::fuzz::sandboxRoot() + dir;
    const std::string mk = "mkdir -p " + full + " " + velto::fuzz::sandboxRoot() + "/dev " +
                           velto::fuzz::sandboxRoot() + "/system/vendor/firmware";
    if (system(mk.c_str()) != 0) abort();
    for (const auto& a : kAttributes) velto::fuzz::writeUnderRoot(dir + a[0], a[1], strlen(a[1]));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = (writeHub(), true);
    (void)ready;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find("----\n");
    const std::string image = input.substr(0, split);
    const std::string device = split == std::string::npos ? std::string() : input.substr(split + 5);
    if (!velto::fuzz::writeUnderRoot("/system/vendor/firmware/veltohub.s19", image.data(), image.size()) ||
        !velto::fuzz::writeUnderRoot("/dev/veltohub", device.data(), device.size())) {
        return 0;
    }
    FuzzedSensor sensor;
    sensor.run();
    return 0;
}
