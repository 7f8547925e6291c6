#ifndef VELTO_GAZECTL_GUIDED_CALIBRATION_H
#define VELTO_GAZECTL_GUIDED_CALIBRATION_H

#include <atomic>
#include <string>
#include <vector>

#include "tools/gazectl/GazeClient.h"
#include "tools/gazectl/LevelCheck.h"

namespace velto {
namespace gazectl {

// `gazectl calibrate GESTURE`: one calibration interval as a guided session.
// It tells the wearer what to do and when, shows progress, and before the
// service applies and saves anything checks that the interval makes sense
// for that calibration. The service deletes or overwrites the earlier
// calibration when it saves, so nothing reaches the save unless the check
// passed; an interrupt ends the interval and saves nothing; and if the save
// itself fails, the earlier files are put back byte for byte.
class GuidedCalibration {
public:
    struct Options {
        EyeGesture gesture = GazeServiceInterface::DON;  // WINK, DON or LOOK_AT_SCREEN
        double seconds = 0;  // 0: the gesture's default
        bool dryRun = false;
    };

    // The longest interval the calibrators keep samples for (one minute at
    // 32 Hz) less a margin, and the shortest that can hold two levels.
    static constexpr double kMaxLevelSeconds = 55.0;
    static constexpr double kMinLevelSeconds = 4.0;
    static constexpr double kMaxWinkSeconds = 300.0;
    static double defaultSeconds(EyeGesture gesture);
    // The calibration run for `name` (DOFF means DON); false when there is none.
    static bool parseGesture(const std::string& name, EyeGesture* gesture);
    // The files a calibration of `gesture` writes, as opened.
    static std::vector<std::string> filesWritten(EyeGesture gesture);

    GuidedCalibration(GazeClient* client, const Options& options, const std::atomic<bool>& interrupted)
        : mClient(client), mOptions(options), mInterrupted(interrupted) {}

    // Runs the session; returns the exit status (0, 1, or 130 when interrupted).
    int run();

private:
    struct Step {
        double untilSeconds;  // of the interval
        const char* instruction;
    };

    int runLevels(const std::vector<Step>& steps, const LevelCheck::Rules& rules);
    int runWinks();
    // Ends the interval; says why nothing was saved; the status to exit with.
    int abandon(int status, const std::string& why);
    int save(const std::string& summary);
    bool predictLibraryResult(const std::vector<float>& readings, std::string* summary, std::string* why) const;

    GazeClient* mClient;
    Options mOptions;
    const std::atomic<bool>& mInterrupted;
    bool mIntervalOpen = false;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_GUIDED_CALIBRATION_H
