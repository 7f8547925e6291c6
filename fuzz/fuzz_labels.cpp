// Labels files beside recordings.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/signal/LabelFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<velto::signal::Label> labels;
    velto::signal::ParseError error;
    if (velto::signal::LabelFile::parse(text, &labels, &error)) {
        std::vector<velto::signal::Label> back;
        if (!velto::signal::LabelFile::parse(velto::signal::LabelFile::format({}, labels), &back,
                                             &error) ||
            back.size() != labels.size()) {
            __builtin_trap();
        }
    }
    return 0;
}
