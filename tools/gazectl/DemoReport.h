#ifndef VELTO_GAZECTL_DEMO_REPORT_H
#define VELTO_GAZECTL_DEMO_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "service/GazeServiceInterface.h"
#include "tools/signal/Label.h"
#include "tools/signal/Recording.h"

namespace velto {
namespace gazectl {

// What the demo's wearer was asked to do and the simulator's ground truth of
// when it happened, in hub time.
struct ExpectedGesture {
    std::string action;  // the control-socket command ("wink 450ms")
    GazeServiceInterface::EyeGesture gesture;
    int64_t startNs = 0;
    int64_t endNs = 0;
};

// One event the service reported, at the hub time of the newest sample the
// sensor had delivered when the event reached the client.
struct DemoDetection {
    GazeServiceInterface::EyeGesture gesture;
    int64_t hubNs = 0;
};

// The demo's verdict, all in hub time. A detection matches the earliest
// unmatched expected gesture of its kind that it falls in (from the start to
// one second after the end; for a look, a quarter second), as gazeeval
// scores; every other detection between fromNs and toNs is false.
struct DemoResult {
    struct Row {
        ExpectedGesture expected;
        bool detected = false;
        int64_t detectedNs = 0;
        // From the end of the gesture; a look is reported while it lasts, so
        // from its start.
        double latencyMs = 0;
    };
    std::vector<Row> rows;
    std::vector<DemoDetection> falseDetections;
    int64_t fromNs = 0;
    int64_t toNs = 0;

    int detectedCount() const;
};

DemoResult scoreDemo(const std::vector<ExpectedGesture>& expected, const std::vector<DemoDetection>& detections,
                     int64_t fromNs, int64_t toNs);

// True when the latency of `gesture` counts from its start.
bool latencyFromStart(GazeServiceInterface::EyeGesture gesture);

// The table for people; times in seconds since `originNs`.
std::string formatDemoTable(const DemoResult& result, int64_t originNs);
// The same as one JSON object (the SVG path when there is one).
std::string formatDemoJson(const DemoResult& result, int64_t originNs, const std::string& svgPath);

// An SVG timeline of the scored period: the readings, the ground-truth labels
// (`labels`, or the expected gestures when empty), hits, false detections and
// missed gestures in colours of their own, with axes in seconds.
std::string renderDemoTimeline(const DemoResult& result, const std::vector<signal::RecordedSample>& samples,
                               const std::vector<signal::Label>& labels);

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_DEMO_REPORT_H
