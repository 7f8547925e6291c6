#ifndef VELTO_GAZETRAIN_TRAINING_SET_H
#define VELTO_GAZETRAIN_TRAINING_SET_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "classifier/Interval.h"
#include "classifier/SeqSample.h"
#include "tools/gazeeval/Corpus.h"
#include "tools/gazetrain/GridStream.h"

namespace velto {
namespace gazetools {

// What one cascade learns to find.
enum class Target {
    DoubleBlink,  // the end of a DOUBLE_BLINK label
    Wink,         // the end of a WINK label whose duration lies in the range
    LookUp,       // the start of a look that raises the reading
    LookDown,     // the start of a look that lowers it
};
inline bool isLookTarget(Target t) { return t == Target::LookUp || t == Target::LookDown; }

struct TargetSetup {
    Target target = Target::DoubleBlink;
    int windowLength = 40;  // samples at the frame rate
    float fps = 32.0f;
    // Label durations (ms) that count; a label outside them is neither
    // wanted nor unwanted.
    double minDurationMs = 0.0;
    double maxDurationMs = 1e12;
    // A window is a positive example when it ends between these times after
    // the end of the event (the end of the rise, for LookUp) and starts at
    // least preMarginMs before the event starts.
    double bandFromMs = -30.0;
    double bandToMs = 200.0;
    double preMarginMs = 60.0;
    // Windows that end from ignoreBeforeMs before an event's end to
    // ignoreAfterMs after the end of its positive band and are not positive
    // are not used at all: they show the event too.
    double ignoreBeforeMs = 200.0;
    double ignoreAfterMs = 300.0;
    // Looks: the return from a look in the other direction is the same step
    // as the start of one in the target's, and a detection there comes after
    // the look. Only a window long enough to hold the level before the step
    // can tell them apart: with returnsAsNegatives those windows are
    // negatives, else they are left out.
    bool returnsAsNegatives = false;
    // Looks: windows that end inside a look-at-screen calibration or reach
    // back into one are left out. The module is off while it calibrates and
    // its detector starts afresh afterwards, so it never sees them; in a long
    // window the calibration's looks, closer together than looks in use, would
    // otherwise teach that a start follows a return.
    bool skipLookCalibration = false;
};

// One event that positives are taken from, in ms of the recording.
struct TargetEvent {
    double startMs;
    double endMs;
    double limitMs;  // positive windows end before this
};

// The events of a recording for a setup, and the spans (ms) around events of
// the same kind that are left out of the negatives.
void findTargetEvents(const CorpusRecording& rec, const GridStream& grid, const TargetSetup& setup,
                      std::vector<TargetEvent>* events, std::vector<std::pair<double, double>>* ignored);

enum class WindowRole : uint8_t { Unused, Positive, Negative };

// A recording prepared for training: its grid stream, the role of the
// window that ends at each grid value, and the magnitudes a detection can
// have in this recording once the wearer's calibration is applied (windows
// outside them never lead to a detection, so they are no examples):
// - looks: [threshold, 500], the look-at-screen module's range, with the
//   threshold from the library's LookAtScreenCalibrator over the recording's
//   look-at-screen calibration span (an empty range without one);
// - Wink: 0.6 to 2 times (plus 50) the centre of the magnitudes of the
//   calibration winks, a wider range than any the wink calibration accepts;
// - otherwise (and for winks without calibration) [5, 1000].
struct TrainingStream {
    std::string name;
    GridStream grid;
    std::vector<WindowRole> roles;
    Interval<float> gate{5.0f, 1000.0f};
    int positives = 0;
    int negatives = 0;
    int events = 0;
    // From a corpus known to hold none of the gestures (real recordings of
    // spontaneous blinking): every full window is a negative.
    bool negativesOnly = false;
};

TrainingStream prepareStream(const CorpusRecording& rec, const TargetSetup& setup);

// The same for a recording that holds no gesture whatever its labels say:
// every full window is a negative. Such recordings carry no look-at-screen
// calibration, so look windows are gated at the lowest threshold a look
// calibration gives (kLeastLookThreshold), the most permissive a wearer can
// end up with.
TrainingStream prepareNegativeStream(const CorpusRecording& rec, const TargetSetup& setup);
constexpr float kLeastLookThreshold = 24.0f;

// Slides a window of `length` over every segment of the stream as a
// BoostingDetector does (cleared at each segment start) and calls `visit`
// with the index of its newest value once it is full.
void slideWindows(const GridStream& grid, int length,
                  const std::function<void(size_t index, const SeqSample& window)>& visit);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZETRAIN_TRAINING_SET_H
