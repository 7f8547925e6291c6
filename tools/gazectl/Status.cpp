#include "tools/gazectl/Status.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "calibration/DonDoffCalibrator.h"
#include "calibration/LookAtScreenCalibrator.h"
#include "calibration/MCUParams.h"
#include "modules/WinkModule.h"
#include "sensor/VeltohubProximitySensor.h"
#include "service/GazeService.h"
#include "tools/gazectl/GazeClient.h"
#include "tools/gazectl/LogRouter.h"
#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {
namespace gazectl {

namespace {

typedef GazeServiceInterface G;
using nlohmann::json;

bool readText(const std::string& path, std::string* text) {
    std::ifstream in(path);
    if (!in) return false;
    std::stringstream s;
    s << in.rdbuf();
    *text = s.str();
    while (!text->empty() && (text->back() == '\n' || text->back() == ' ')) text->pop_back();
    return true;
}

std::string resolved(const char* path) { return Paths::resolve(path).string(); }

std::string attribute(const char* name) {
    std::string text;
    const android::String8 dir = Paths::resolve(VeltohubProximitySensor::kSysfsDirectory);
    readText(VeltohubProximitySensor::getFullPath(dir, android::String8(name)).string(), &text);
    return text;
}

json number(const std::string& text) {
    char* end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    return text.empty() || *end != 0 ? json(nullptr) : json(value);
}

// The version record of the firmware image: S1 at 0x8480, two data bytes.
std::string imageVersion() {
    std::ifstream in(resolved(VeltohubProximitySensor::kFirmwarePath));
    std::string line;
    while (std::getline(in, line)) {
        unsigned major = 0, minor = 0;
        if (line.compare(0, 8, "S1058480") == 0 && line.size() >= 12 &&
            sscanf(line.c_str() + 8, "%2x%2x", &major, &minor) == 2) {
            return std::to_string(major) + "." + std::to_string(minor);
        }
    }
    return "";
}

json fileState(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return {{"path", path}, {"exists", false}};
    return {{"path", path}, {"exists", true}, {"bytes", st.st_size}, {"modified", static_cast<long long>(st.st_mtime)}};
}

json gestureEntry(G::EyeGesture g, const std::string& serial) {
    const std::string name = GazeService::eyeGestureAsString8(g).string();
    json entry = {{"gesture", name}, {"supported", true}};
    const char* detectorFile = g == G::WINK           ? "/system/etc/gaze/multi_dur_wink_detector.txt"
                               : g == G::DOUBLE_BLINK ? "/system/etc/gaze/two_blink_detector_set.txt"
                               : g == G::LOOK_AT_SCREEN ? "/system/etc/gaze/laser_detector_set.txt"
                                                        : nullptr;
    if (!GazeService::doesHardwareSupportGesture(android::String8(serial.c_str()), g)) {
        entry["supported"] = false;
        entry["why_not"] = serial.empty()
                                   ? "no serial number: pass --serial (or set VELTOGAZE_SERIAL) with the device's "
                                     "serial number, whose first letter is the hardware revision; WINK needs "
                                     "revision G or later"
                                   : "hardware revision '" + serial.substr(0, 1) +
                                             "' (the serial number's first letter) has no wink sensor; WINK needs "
                                             "revision G or later";
    } else if (detectorFile != nullptr && !Utils::doesFileExist(resolved(detectorFile).c_str())) {
        entry["supported"] = false;
        entry["why_not"] = "the detector file " + resolved(detectorFile) + " is missing";
    }
    if (g == G::DOUBLE_BLINK) {
        entry["needs_calibration"] = false;
        return entry;
    }
    entry["needs_calibration"] = true;
    bool calibrated = false;
    std::string detail;
    if (g == G::DON) {
        // The don/doff module counts as calibrated when the parameter file loads.
        MCUParams params;
        const std::string path = MCUParams::kMcuParamsFilename.string();
        calibrated = params.loadFromFile(MCUParams::kMcuParamsFilename);
        entry["files"] = json::array({fileState(resolved(path.c_str()))});
        if (calibrated) {
            detail = "don " + std::to_string(params.donThreshold) + ", doff " + std::to_string(params.doffThreshold) +
                     ", don-max " + std::to_string(params.donMaxThreshold);
        }
    } else if (g == G::LOOK_AT_SCREEN) {
        const std::string path = resolved(LookAtScreenCalibrator::kDefaultParamFilePath);
        std::string text;
        float threshold = 0;
        calibrated = readText(path, &text) && sscanf(text.c_str(), "%f", &threshold) == 1;
        entry["files"] = json::array({fileState(path)});
        if (calibrated) {
            entry["threshold"] = threshold;
            detail = "threshold " + text.substr(0, text.find('\n'));
        }
    } else {
        const std::string path = resolved(WinkModule::kDefaultCalibrationFilename);
        std::string text;
        float a, b, c, d;
        int index;
        MCUParams params;
        calibrated = readText(path, &text) && sscanf(text.c_str(), "%f %f %f %f %d", &a, &b, &c, &d, &index) == 5 &&
                     params.loadFromFile(MCUParams::kMcuParamsFilename);
        entry["files"] = json::array({fileState(path), fileState(resolved(MCUParams::kMcuParamsFilename.string()))});
        if (calibrated) {
            char buf[160];
            snprintf(buf, sizeof(buf), "magnitudes %.0f..%.0f, durations %.0f..%.0f ms, detector %d", a, b, c, d, index);
            detail = buf;
        }
    }
    entry["calibrated"] = calibrated;
    if (!detail.empty()) entry["calibration"] = detail;
    return entry;
}

}  // namespace

json Status::gather() {
    // The library's checks below log as they go; none of that is status.
    LogRouter::install().setMuted(true);
    json status;
    json hub = {{"present", GazeClient::hubPresent()}, {"path", GazeClient::hubMarkerPath()}};
    if (hub["present"]) {
        const std::string running = attribute("version"), image = imageVersion();
        hub["firmware"] = running;
        hub["firmware_image"] = image;
        hub["firmware_state"] = image.empty()        ? "no readable image at " + resolved(VeltohubProximitySensor::kFirmwarePath)
                                : running == image   ? "up to date"
                                : atoi(running.c_str()) >= 0x80 ? "experimental build (left as it is)"
                                                     : "differs from the image (the service flashes it at start)";
        hub["bootloader_version"] = attribute("bootloader_version");
        hub["prox_version"] = attribute("prox_version");
        hub["paused"] = attribute("pause") == "1";
        hub["streaming"] = attribute("passthru_enable") == "1";
        hub["don_doff_detector"] = attribute("don_doff_enable") == "1";
        hub["wink_detector"] = attribute("wink_enable") == "1";
        json params;
        for (const char* name : {"don_threshold", "doff_threshold", "don_max_threshold", "detector_gain", "wink_min",
                                 "wink_max", "activity_threshold"}) {
            params[name] = number(attribute(name));
        }
        status["parameters"] = params;
        std::string held;
        readText(resolved("/sys/power/wake_lock"), &held);
        json locks = json::array();
        std::istringstream words(held);
        for (std::string w; words >> w;) locks.push_back(w);
        status["wake_locks"] = locks;
    }
    status["hub"] = hub;
    status["version"] = GazeService::kVersion.string();
    const std::string serial = Utils::getVeltoSerialNumber().string();
    status["serial"] = serial;
    json gestures = json::array();
    for (G::EyeGesture g : {G::WINK, G::DOUBLE_BLINK, G::DON, G::LOOK_AT_SCREEN}) gestures.push_back(gestureEntry(g, serial));
    status["gestures"] = gestures;
    LogRouter::install().setMuted(false);
    return status;
}

std::string Status::toText(const json& s) {
    std::ostringstream out;
    const json& hub = s["hub"];
    if (!hub["present"].get<bool>()) {
        // Nothing else can be told without it.
        out << "hub:         none at " << hub["path"].get<std::string>() << "\n";
        return out.str();
    }
    {
        out << "hub:         present, " << (hub["paused"].get<bool>() ? "paused" : "running") << ", "
            << (hub["streaming"].get<bool>() ? "streaming" : "not streaming") << "\n";
        out << "firmware:    " << hub["firmware"].get<std::string>() << " (image "
            << hub["firmware_image"].get<std::string>() << ": " << hub["firmware_state"].get<std::string>()
            << "), bootloader " << hub["bootloader_version"].get<std::string>() << ", prox "
            << hub["prox_version"].get<std::string>() << "\n";
        out << "parameters:";
        for (const auto& p : s["parameters"].items()) out << " " << p.key() << "=" << p.value().dump();
        out << "\nwake locks:  " << (s["wake_locks"].empty() ? std::string("none") : s["wake_locks"].dump()) << "\n";
    }
    out << "service:     " << s["version"].get<std::string>() << ", serial "
        << (s["serial"].get<std::string>().empty() ? std::string("unknown") : s["serial"].get<std::string>()) << "\n";
    for (const json& g : s["gestures"]) {
        char name[24];
        snprintf(name, sizeof(name), "%-15s", g["gesture"].get<std::string>().c_str());
        out << name;
        if (!g["supported"].get<bool>()) {
            out << "not supported: " << g["why_not"].get<std::string>() << "\n";
            continue;
        }
        if (!g["needs_calibration"].get<bool>()) {
            out << "supported, needs no calibration\n";
        } else if (g["calibrated"].get<bool>()) {
            out << "calibrated (" << g["calibration"].get<std::string>() << ")\n";
        } else {
            out << "not calibrated: run gazectl calibrate " << g["gesture"].get<std::string>() << "\n";
        }
    }
    return out.str();
}

}  // namespace gazectl
}  // namespace velto
