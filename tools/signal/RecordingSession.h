#ifndef VELTO_SIGNAL_RECORDINGSESSION_H
#define VELTO_SIGNAL_RECORDINGSESSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/signal/Label.h"
#include "tools/signal/WearerProfile.h"

namespace velto {
namespace signal {

// One synthetic recording of a corpus: the wearer puts the device on,
// calibrates don/doff, winks and look-at-screen, and then wears it with
// spontaneous blinks, gestures at their own rates, artefacts and the odd time
// off the head. The result is the text of the recording (the library's raw-
// data log format) and of its labels file.
class RecordingSession {
public:
    struct Result {
        std::string recording;
        std::string labels;
        std::vector<Label> labelList;  // the labels, annotations included, in file order
        int64_t samples = 0;
    };

    // The header lines go at the top of each file as comments.
    static Result generate(const WearerProfile& wearer, uint64_t seed, int64_t startNs,
                           int64_t durationNs, const std::vector<std::string>& recordingHeader,
                           const std::vector<std::string>& labelsHeader);

private:
    RecordingSession() = delete;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_RECORDINGSESSION_H
