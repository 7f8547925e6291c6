#ifndef VELTO_GAZETRAIN_LIST_FILES_H
#define VELTO_GAZETRAIN_LIST_FILES_H

#include <string>
#include <vector>

#include "classifier/Interval.h"
#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// Writes a detector-set list file: the names of the detector files, which
// must lie in the list file's directory. Checks that the library loads it.
bool writeDetectorSetList(const std::string& listPath, const std::vector<std::string>& detectorFiles,
                          std::string* error);

struct WinkListEntry {
    Interval<float> durationRangeMs;
    std::string detectorFile;  // in the list file's directory
};

// Writes the wink detector list (pairs of a duration range line and a file
// name line) and checks that the library loads it.
bool writeWinkList(const std::string& listPath, const std::vector<WinkListEntry>& entries, std::string* error);

// Runs one wink cascade as the wink detector runs it (a BoostingDetector at
// 32 Hz with the magnitude range [5, 1000]) over every recording and returns
// the durations the detector estimates for its detections of WINK labels
// whose labelled duration lies in [minLabelMs, maxLabelMs] (a detection
// counts for a label from its start to 1 s after its end).
bool measureWinkDurations(const std::vector<CorpusRecording>& corpus, const std::string& detectorFile,
                          double minLabelMs, double maxLabelMs, std::vector<float>* durations, int* labels,
                          std::string* error);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZETRAIN_LIST_FILES_H
