#ifndef VELTO_SIGNAL_RECORDING_H
#define VELTO_SIGNAL_RECORDING_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/signal/TextFields.h"

namespace velto {
namespace signal {

// One line of a raw-data log: hub time stamp, 14-bit reading, hub flag.
struct RecordedSample {
    int64_t timestampNs = 0;
    uint16_t reading = 0;
    bool flag = false;
};

// The library's raw-data log format: comment lines beginning with '#'
// ("# " and the text when written), then one "<ns> <reading> <0|1>" line per
// sample.
class Recording {
public:
    // Reads all samples (and, if `comments` is given, the comment texts).
    // Blank lines are skipped. False with the line and reason on bad input.
    static bool parse(std::string_view text, std::vector<RecordedSample>* samples,
                      std::vector<std::string>* comments, ParseError* error);

    static void appendComment(std::string* out, std::string_view text);
    static void appendSample(std::string* out, const RecordedSample& sample);

private:
    Recording() = delete;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_RECORDING_H
