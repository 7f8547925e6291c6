// Firmware images: as a file read by veltohub-sim, and as the text the hub
// receives through update_fw_data in pieces.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/hubsim/FirmwareImage.h"
#include "tools/hubsim/HubModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    velto::hubsim::FirmwareImage image;
    int line = 0;
    velto::hubsim::FirmwareImage::fromText(text, &image, &line);

    velto::hubsim::HubModel hub{velto::hubsim::HubConfig()};
    hub.write("update_fw_enable", "1");
    for (size_t pos = 0; pos < text.size(); pos += 79)
        hub.write("update_fw_data", text.substr(pos, 79));
    hub.write("update_fw_enable", size % 2 ? "254" : "0");
    std::string status;
    hub.read("flash_status", &status);
    hub.read("version", &status);
    return 0;
}
