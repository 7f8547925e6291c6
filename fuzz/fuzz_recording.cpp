// Raw-data logs (recordings) as veltohub-sim --replay reads them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/signal/Recording.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<velto::signal::RecordedSample> samples;
    std::vector<std::string> comments;
    velto::signal::ParseError error;
    if (velto::signal::Recording::parse(text, &samples, &comments, &error)) {
        // What parsed writes back to text that parses to the same samples.
        std::string again;
        for (const auto& s : samples) velto::signal::Recording::appendSample(&again, s);
        std::vector<velto::signal::RecordedSample> back;
        if (!velto::signal::Recording::parse(again, &back, nullptr, &error) ||
            back.size() != samples.size()) {
            __builtin_trap();
        }
    }
    return 0;
}
