// Scenario files and control lines of veltohub-sim: parsing must never
// crash, and whatever parses must run.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/hubsim/Scenario.h"
#include "tools/hubsim/Simulation.h"
#include "tools/signal/TextFields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Made once: building an image is far slower than anything under test.
    static const velto::hubsim::FirmwareImage image = velto::hubsim::FirmwareImage::make(1, 0);
    const std::string text(reinterpret_cast<const char*>(data), size);
    velto::hubsim::Scenario scenario;
    velto::signal::ParseError error;
    if (velto::hubsim::ScenarioParser::parse(text, &scenario, &error)) {
        velto::hubsim::Simulation sim(scenario, image);
        sim.advanceTo(3000000000LL);
    }
    // Every line also as a control command.
    velto::hubsim::Simulation live(velto::hubsim::Scenario(),
                                   velto::hubsim::FirmwareImage::make(1, 0));
    int lines = 0;
    for (std::string_view line : velto::signal::splitLines(text)) {
        if (++lines > 32) break;
        live.control(line);
        live.advanceTo(live.hub().simNow() + 100000000LL);
    }
    return 0;
}
