#ifndef VELTO_GAZEEVAL_SVG_PLOT_H
#define VELTO_GAZEEVAL_SVG_PLOT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// One row of detection marks.
struct PlotMarks {
    std::string name;
    std::string color;  // an SVG colour
    std::vector<int64_t> timesNs;
};

// An SVG picture of a recording between fromNs and toNs: the readings (as
// the per-pixel range where samples are denser than pixels), one band row per
// label kind, and one row of marks per detector.
std::string renderSvg(const CorpusRecording& rec, int64_t fromNs, int64_t toNs, const std::vector<PlotMarks>& marks);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_SVG_PLOT_H
