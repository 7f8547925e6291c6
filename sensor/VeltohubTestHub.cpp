#include "sensor/VeltohubTestHub.h"

namespace velto {
namespace test {

PlainFileHub::PlainFileHub() {
    const char* const defaults[][2] = {
            {"version", "3.7"},         {"bootloader_version", "4"}, {"prox_version", "12"},
            {"name", "veltohub"},       {"pause", "1"},              {"pause_for_audio", "0"},
            {"led_drive", "3"},         {"passthru_enable", "0"},    {"don_doff_enable", "0"},
            {"wink_enable", "0"},       {"wink_flag_enable", "0"},   {"don_threshold", "450"},
            {"doff_threshold", "400"},  {"don_max_threshold", "2000"}, {"activity_threshold", "0"},
            {"detector_gain", "2"},     {"wink_min", "0"},           {"wink_max", "680"},
            {"current_timestamp", "5000000000"}, {"mcu_debug16", "0"}, {"update_fw_enable", ""},
            {"update_fw_data", ""},     {"flash_status", "0"},       {"don_doff", "0\n"},
            {"wink", "0\n"},
    };
    for (const auto& entry : defaults) set(entry[0], entry[1]);
    writeImage("S10584800307EF");
    writeFile(underRoot("/sys/power/wake_lock"), "");
    writeFile(underRoot("/sys/power/wake_unlock"), "");
}

void PlainFileHub::writeImage(const std::string& versionRecord) {
    writeFile(underRoot(VeltohubProximitySensor::kFirmwarePath),
              "S00600004844521B\nS1130000285F245F2212226A000424290008237C2A\n" + versionRecord + "\nS9030000FC\n");
}

std::string PlainFileHub::packet(uint64_t timestampNs, uint16_t value) {
    std::string out(10, '\0');
    for (int i = 0; i < 8; ++i) out[i] = static_cast<char>((timestampNs >> (8 * i)) & 0xFF);
    out[8] = static_cast<char>(value & 0xFF);
    out[9] = static_cast<char>(value >> 8);
    return out;
}

}  // namespace test
}  // namespace velto
