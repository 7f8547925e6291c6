#ifndef VELTO_GAZEEVAL_CORPUS_H
#define VELTO_GAZEEVAL_CORPUS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/signal/Label.h"
#include "tools/signal/Recording.h"

namespace velto {
namespace gazetools {

// Where an input file went wrong. line is 1-based, 0 when the fault is not
// on one line (a missing file, an empty corpus).
struct InputError {
    std::string file;
    int line = 0;
    std::string message;

    // "file:line: message" (or "file: message").
    std::string text() const;
};

// A time span in nanoseconds of a recording's time stamps.
struct Span {
    int64_t startNs = 0;
    int64_t endNs = 0;

    bool contains(int64_t t) const { return startNs <= t && t <= endNs; }
    bool overlaps(const Span& o) const { return startNs <= o.endNs && o.startNs <= endNs; }
};

// True when t lies in one of the spans.
bool insideAny(const std::vector<Span>& spans, int64_t t);

// One recording of a corpus with its labels, checked: at least one sample,
// labels in order of their start and inside the recording (from 100 ms
// before its first sample to 100 ms after its last).
struct CorpusRecording {
    std::string name;  // file name without ".txt"
    std::string recordingPath;
    std::string labelsPath;
    std::vector<signal::RecordedSample> samples;
    std::vector<signal::Label> labels;
    std::vector<Span> partialBlinks;  // from "# START END PARTIAL_BLINK" comments, when the recorder knew
    int64_t firstNs = 0;  // earliest and latest sample time stamp
    int64_t lastNs = 0;

    double hours() const { return static_cast<double>(lastNs - firstNs) / 3.6e12; }
    // The spans of every label of one kind, in file order.
    std::vector<Span> spansOf(signal::LabelKind kind) const;
    // The spans of every calibration label of any kind.
    std::vector<Span> calibrationSpans() const;
    // When the device is on the head: a recording starts off the head when its
    // first DON/DOFF label is a DON, else on it; it is worn from the end of a
    // DON label to the start of the next DOFF label.
    std::vector<Span> wornSpans() const;
    // Whether a look at the display raised the reading: the median reading of
    // its settled part against the median of the 600 ms before it.
    bool lookRaisesReading(const Span& look) const;
};

// Parses and checks one pair of texts; the file names only go into errors.
bool parseRecordingPair(const std::string& recordingPath, std::string_view recordingText,
                        const std::string& labelsPath, std::string_view labelsText, CorpusRecording* out,
                        InputError* error);

// Reads every X.txt of `dir` (sorted by name) with its X.labels. A recording
// without labels, a file that cannot be read or checked, or a directory
// without recordings is an error.
bool loadCorpus(const std::string& dir, std::vector<CorpusRecording>* out, InputError* error);

// Reads a whole file; false if it cannot be read.
bool readWholeFile(const std::string& path, std::string* text);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_CORPUS_H
