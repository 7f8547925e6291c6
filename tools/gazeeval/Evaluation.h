#ifndef VELTO_GAZEEVAL_EVALUATION_H
#define VELTO_GAZEEVAL_EVALUATION_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/gazeeval/Corpus.h"
#include "tools/gazeeval/Replay.h"
#include "tools/gazeeval/Scoring.h"

namespace velto {
namespace gazetools {

// Where the cascade's false double blinks fell, and how many natural
// doublets (two spontaneous blinks close together) it took for one.
struct DoubletReport {
    int falseOnDoublet = 0;
    int falseOnPartialBlink = 0;
    int falseElsewhere = 0;
    int naturalDoublets = 0;
    int naturalDoubletsDetected = 0;

    void add(const DoubletReport& other);
};

struct GestureReport {
    GestureScore cascade;
    GestureScore baseline;
    // LOOK_AT_SCREEN only: the cascade per direction of the shift (events,
    // matches and latencies; false detections are not attributed), and under
    // the old rule that let a detection come up to a second after the look.
    GestureScore rising;
    GestureScore falling;
    GestureScore oldRule;
    // DOUBLE_BLINK only.
    DoubletReport doublets;
};

// What became of one detection, or a label that no detection matched.
struct DetectionRecord {
    std::string gesture;
    bool baseline;
    int64_t timeNs;  // of the detection, or the end of the missed label
    Outcome outcome;
    bool missedLabel = false;
};

struct RecordingReport {
    std::string name;
    std::vector<DetectionRecord> detections;
    GestureReport doubleBlink;
    GestureReport wink;
    GestureReport lookAtScreen;
    bool winkCalibrated = false;
    bool lookCalibrated = false;
    float lookThreshold = 0.0f;
};

struct CorpusReport {
    std::string name;  // the corpus directory
    double hours = 0.0;
    GestureReport doubleBlink;
    GestureReport wink;
    GestureReport lookAtScreen;
    std::vector<RecordingReport> recordings;  // in corpus order
};

// Scores the replay of one recording.
RecordingReport scoreRecording(const CorpusRecording& rec, const RecordingReplay& replay);

// Replays and scores every recording, `threads` at a time; the replays are
// kept when `replays` is given. The result does not depend on `threads`.
// `uncalibratedLookThreshold` as for replayRecording.
bool evaluateCorpus(const std::vector<CorpusRecording>& corpus, const ModelFiles& models,
                    const std::string& scratchDir, int threads, CorpusReport* report,
                    std::vector<RecordingReplay>* replays, std::string* error,
                    float uncalibratedLookThreshold = 0.0f);

// The figures of one score: recall, precision, f1, fp_per_hour,
// latency_ms_median, latency_ms_p95, events, detections (null where undefined).
nlohmann::ordered_json scoreToJson(const GestureScore& score);
// The whole report; per recording too when asked.
nlohmann::ordered_json reportToJson(const CorpusReport& report, bool perRecording);
// A table for people.
std::string reportToText(const CorpusReport& report);
// Another corpus reported beside the main one (real recordings, say): its
// figures under its name.
nlohmann::ordered_json sectionToJson(const CorpusReport& report);
std::string sectionToText(const CorpusReport& report);
// Every detection with its outcome, one tab-separated line each.
std::string detectionsToTsv(const CorpusReport& report);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZEEVAL_EVALUATION_H
