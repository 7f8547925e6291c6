#include "tools/signal/Recording.h"

#include <cinttypes>
#include <cstdio>

namespace velto {
namespace signal {

bool Recording::parse(std::string_view text, std::vector<RecordedSample>* samples,
                      std::vector<std::string>* comments, ParseError* error) {
    const std::vector<std::string_view> lines = splitLines(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string_view line = lines[i];
        if (!line.empty() && line[0] == '#') {
            if (comments != nullptr) {
                line.remove_prefix(line.size() >= 2 && line[1] == ' ' ? 2 : 1);
                comments->emplace_back(line);
            }
            continue;
        }
        const std::vector<std::string_view> f = splitFields(line);
        if (f.empty()) continue;
        const int lineNo = static_cast<int>(i) + 1;
        if (f.size() != 3) {
            *error = {lineNo, "expected '<timestamp_ns> <reading> <flag>'"};
            return false;
        }
        RecordedSample s;
        int64_t reading = 0;
        if (!parseInt64(f[0], &s.timestampNs)) {
            *error = {lineNo, "bad time stamp '" + std::string(f[0]) + "'"};
            return false;
        }
        if (!parseInt64(f[1], &reading) || reading < 0 || reading > 0x3FFF) {
            *error = {lineNo, "reading must be an integer from 0 to 16383"};
            return false;
        }
        if (f[2] != "0" && f[2] != "1") {
            *error = {lineNo, "flag must be 0 or 1"};
            return false;
        }
        s.reading = static_cast<uint16_t>(reading);
        s.flag = f[2] == "1";
        samples->push_back(s);
    }
    return true;
}

void Recording::appendComment(std::string* out, std::string_view text) {
    out->append("# ");
    out->append(text);
    out->push_back('\n');
}

void Recording::appendSample(std::string* out, const RecordedSample& sample) {
    char buf[48];
    const int n = snprintf(buf, sizeof(buf), "%" PRId64 " %u %c\n", sample.timestampNs,
                           static_cast<unsigned>(sample.reading), sample.flag ? '1' : '0');
    out->append(buf, static_cast<size_t>(n));
}

}  // namespace signal
}  // namespace velto
