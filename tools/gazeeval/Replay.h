#ifndef VELTO_GAZEEVAL_REPLAY_H
#define VELTO_GAZEEVAL_REPLAY_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/gazeeval/Corpus.h"

namespace velto {
namespace gazetools {

// The detector and list files of one model directory, under the names the
// gesture modules load them by.
struct ModelFiles {
    std::string doubleBlinkSet;  // two_blink_detector_set.txt
    std::string winkList;        // multi_dur_wink_detector.txt
    std::string lookAtScreenSet; // laser_detector_set.txt

    static ModelFiles inDirectory(const std::string& dir);
    // Loads each file once through the library; false with the file named.
    bool check(std::string* error) const;
};

// Detection times (ns) of one gesture in one recording.
struct Detections {
    std::vector<int64_t> cascade;   // the library's detectors with the shipped models
    std::vector<int64_t> baseline;  // the threshold baseline
};

struct RecordingReplay {
    Detections doubleBlink;
    Detections wink;
    Detections lookAtScreen;
    // Where scoring of the calibrated gestures starts: the end of their first
    // calibration span, or the start of the recording when it has none.
    int64_t winkFromNs = 0;
    int64_t lookFromNs = 0;
    bool winkCalibrated = false;  // the wink detector's isCalibrated() at the end
    bool lookCalibrated = false;  // the look-at-screen calibrator succeeded
    float lookThreshold = 0.0f;  // from the look-at-screen calibrator, when calibrated
};

// Replays one recording sample by sample through the library's detectors, as
// the gesture modules feed them (the 14-bit reading as one float with its
// time stamp), and through the threshold baselines:
// - DOUBLE_BLINK: EyeGestureBoostingDetector with the double-blink set.
// - WINK: CalibratedMultiDurationWinkDetector; a calibration interval is open
//   over each CALIBRATE_WINK span.
// - LOOK_AT_SCREEN: LookAtScreenCalibrator over each CALIBRATE_LOOK_AT_SCREEN
//   span; after a successful calibration an EyeGestureBoostingDetector with the
//   look-at-screen set and the magnitude range [threshold, 500] runs, as the
//   look-at-screen module runs it.
// `scratchDir` receives the calibrator's parameter file for a moment.
// A recording without a look-at-screen calibration span runs the look
// detector from its start with `uncalibratedLookThreshold` when that is
// above 0 (recordings made without a calibration, real ones say), and not
// at all otherwise.
bool replayRecording(const CorpusRecording& rec, const ModelFiles& models, const std::string& scratchDir,
                     RecordingReplay* out, std::string* error, float uncalibratedLookThreshold = 0.0f);

// Runs the library's LookAtScreenCalibrator over the samples of `span` and
// returns the threshold it writes, as the look-at-screen module reads it
// back. The parameter file lives in `scratchDir` (empty: defaultScratchDir())
// for a moment.
bool calibrateLookAtScreen(const CorpusRecording& rec, const Span& span, const std::string& scratchDir,
                           float* threshold);

// $TMPDIR, or /tmp.
std::string defaultScratchDir();

// Routes the library's log: with `verbose` every line goes to stderr, else
// it is dropped (a replay makes several lines per sample).
void routeLibraryLog(bool verbose);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_REPLAY_H
