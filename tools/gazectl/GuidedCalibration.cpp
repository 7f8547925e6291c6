#include "tools/gazectl/GuidedCalibration.h"

#include <log/log.h>
#include <stdio.h>
#include <unistd.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>

#include "calibration/DonDoffCalibrator.h"
#include "calibration/LookAtScreenCalibrator.h"
#include "calibration/MCUParams.h"
#include "modules/WinkModule.h"
#include "sensor/VeltohubProximitySensor.h"
#include "tools/cli/ToolCli.h"
#include "tools/gazectl/LogRouter.h"
#include "veltoutils/Paths.h"

namespace velto {
namespace gazectl {

namespace {

typedef GazeServiceInterface G;

// The readings of the interval as gazectl sees them: the service's
// calibrators keep theirs to themselves.
class SampleRecorder : public ProximitySensorInterface::ProxDataListener {
public:
    void onProxData(const ProxData& data) override {
        std::lock_guard<std::mutex> lock(mLock);
        if (mValues.empty()) mFirstNanos = data.mTimestampNanos;
        mLastNanos = data.mTimestampNanos;
        mValues.push_back(static_cast<float>(data.mData & 0x3FFF));
    }
    // Seconds of hub time covered, and how many readings.
    double seconds(size_t* count = nullptr) const {
        std::lock_guard<std::mutex> lock(mLock);
        if (count != nullptr) *count = mValues.size();
        return mValues.empty() ? 0 : static_cast<double>(mLastNanos - mFirstNanos) * 1e-9;
    }
    std::vector<float> values() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mValues;
    }
    float recentMedian(size_t n) const {
        std::lock_guard<std::mutex> lock(mLock);
        if (mValues.empty()) return 0;
        std::vector<float> tail(mValues.end() - static_cast<long>(std::min(n, mValues.size())), mValues.end());
        std::nth_element(tail.begin(), tail.begin() + static_cast<long>(tail.size() / 2), tail.end());
        return tail[tail.size() / 2];
    }

private:
    mutable std::mutex mLock;
    std::vector<float> mValues;
    int64_t mFirstNanos = 0, mLastNanos = 0;
};

// The sensor may still hand a sample to a listener it has just removed, so
// the recorder lives as long as the process.
SampleRecorder* recorder() {
    static SampleRecorder* r = new SampleRecorder();
    return r;
}

// The earlier calibration files, to put back as they were when a save fails
// half-way (the service deletes the look-at-screen file on a failed save).
class FileBackup {
public:
    explicit FileBackup(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            Entry e{path, false, {}};
            std::ifstream in(path, std::ios::binary);
            if (in) {
                std::stringstream s;
                s << in.rdbuf();
                e.existed = true;
                e.bytes = s.str();
            }
            mEntries.push_back(e);
        }
    }
    // Writes each file whole under a temporary name, then renames it.
    bool restore() const {
        bool ok = true;
        for (const Entry& e : mEntries) {
            if (!e.existed) {
                remove(e.path.c_str());
                continue;
            }
            const std::string temporary = e.path + ".restore";
            std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
            out << e.bytes;
            out.close();
            ok = ok && out.good() && rename(temporary.c_str(), e.path.c_str()) == 0;
        }
        return ok;
    }

private:
    struct Entry {
        std::string path;
        bool existed;
        std::string bytes;
    };
    std::vector<Entry> mEntries;
};

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char buf[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buf, sizeof(buf), fmt, args);
    va_end(args);
    return buf;
}

void say(const std::string& line) {
    fprintf(stderr, "gazectl: %s\n", line.c_str());
    fflush(stderr);
}

}  // namespace

double GuidedCalibration::defaultSeconds(EyeGesture gesture) {
    return gesture == G::WINK ? 40.0 : gesture == G::LOOK_AT_SCREEN ? 12.0 : 10.0;
}

bool GuidedCalibration::parseGesture(const std::string& name, EyeGesture* gesture) {
    EyeGesture g;
    if (!GazeClient::parseGesture(name, &g)) return false;
    if (g == G::DOFF) g = G::DON;
    if (g != G::WINK && g != G::DON && g != G::LOOK_AT_SCREEN) return false;
    *gesture = g;
    return true;
}

std::vector<std::string> GuidedCalibration::filesWritten(EyeGesture gesture) {
    std::vector<const char*> paths;
    if (gesture == G::WINK) paths = {WinkModule::kDefaultCalibrationFilename, MCUParams::kMcuParamsFilename.string()};
    if (gesture == G::DON) paths = {MCUParams::kMcuParamsFilename.string(), DonDoffCalibrator::kDebugFilename};
    if (gesture == G::LOOK_AT_SCREEN) paths = {LookAtScreenCalibrator::kDefaultParamFilePath};
    std::vector<std::string> out;
    for (const char* p : paths) out.push_back(Paths::resolve(p).string());
    return out;
}

int GuidedCalibration::run() {
    const EyeGesture g = mOptions.gesture;
    GazeServiceInterface* service = mClient->service();
    if (mOptions.seconds <= 0) mOptions.seconds = defaultSeconds(g);
    if (!service->startCalibrationIntervalForGesture(g)) {
        say(format("cannot open a %s calibration interval (run with --verbose or --log FILE for why)",
                   GazeClient::name(g)));
        return tools::kExitFailed;
    }
    mIntervalOpen = true;
    VeltohubProximitySensor* sensor = VeltohubProximitySensor::getInstance();
    sensor->addProxDataListener(recorder());

    int status;
    if (g == G::WINK) {
        status = runWinks();
    } else if (g == G::DON) {
        const double s = mOptions.seconds;
        LevelCheck::Rules rules;
        rules.minSeparation = DonDoffCalibrator::kMinClusterSeparation;
        rules.lowerLevelBelow = MCUParams::kDefaultDonThreshold;
        rules.orUpperTimesLower = 2.0f;
        status = runLevels({{0.45 * s, "Wear the device as usual and look ahead."},
                            {s, "Take the device off now and hold it still, away from your face."}},
                           rules);
    } else {
        const double s = mOptions.seconds;
        LevelCheck::Rules rules;
        rules.minSeparation = LookAtScreenCalibrator::kDefaultMinClusterSeparation;
        status = runLevels({{0.2 * s, "Look straight ahead, away from the display."},
                            {0.45 * s, "Look at the display now ..."},
                            {0.7 * s, "... look away (straight ahead)."},
                            {s, "Look at the display now ..."}},
                           rules);
    }
    sensor->removeProxDataListener(recorder());
    return status;
}

int GuidedCalibration::abandon(int status, const std::string& why) {
    // Without a hub its errors say nothing more than this line.
    if (!GazeClient::hubPresent()) {
        LogRouter::install().setMuted(true);
        LogRouter::install().dropHeldErrors();
    }
    if (mIntervalOpen) {
        mClient->service()->endCalibrationIntervalForGesture(mOptions.gesture);
        mIntervalOpen = false;
    }
    say(format("%s calibration not saved: %s. The earlier calibration is unchanged.", GazeClient::name(mOptions.gesture),
               why.c_str()));
    return status;
}

int GuidedCalibration::runLevels(const std::vector<Step>& steps, const LevelCheck::Rules& rules) {
    const bool tty = isatty(STDERR_FILENO);
    size_t step = 0;
    say(format("calibrating %s for %.0f s; Ctrl-C stops without saving.", GazeClient::name(mOptions.gesture),
               mOptions.seconds));
    say(steps[0].instruction);
    auto lastProgress = std::chrono::steady_clock::now();
    size_t lastCount = 0;
    auto lastSample = std::chrono::steady_clock::now();
    for (;;) {
        if (mInterrupted.load()) {
            if (tty) fputc('\n', stderr);
            return abandon(tools::kExitInterrupted, "interrupted");
        }
        if (!GazeClient::hubPresent()) return abandon(tools::kExitFailed, "the sensor hub disappeared");
        LogRouter::install().showHeldErrors();
        size_t count = 0;
        const double elapsed = recorder()->seconds(&count);
        const auto now = std::chrono::steady_clock::now();
        if (count != lastCount) lastSample = now;
        lastCount = count;
        if (now - lastSample > std::chrono::seconds(10)) {
            return abandon(tools::kExitFailed, "no readings arrive from the hub");
        }
        if (elapsed >= steps.back().untilSeconds) break;
        while (step + 1 < steps.size() && elapsed >= steps[step].untilSeconds) {
            ++step;
            if (tty) fputc('\n', stderr);
            say(format("[%4.1f s] %s", elapsed, steps[step].instruction));
        }
        if (tty && now - lastProgress > std::chrono::milliseconds(200)) {
            lastProgress = now;
            fprintf(stderr, "\r  %4.1f / %.0f s   reading %4.0f   ", elapsed, mOptions.seconds,
                    recorder()->recentMedian(8));
        }
        usleep(50000);
    }
    if (tty) fputc('\n', stderr);
    mClient->service()->endCalibrationIntervalForGesture(mOptions.gesture);
    mIntervalOpen = false;
    if (mOptions.gesture == G::DON) say("Put the device back on.");
    if (mOptions.gesture == G::LOOK_AT_SCREEN) say("Done; look where you like.");

    const std::vector<float> readings = recorder()->values();
    const LevelCheck::Result levels = LevelCheck::analyze(readings, rules);
    say(format("levels seen: %.0f (held %.1f s) and %.0f (held %.1f s), noise %.1f", levels.lower,
               levels.lowerHeldSeconds, levels.upper, levels.upperHeldSeconds, levels.noise));
    if (!levels.ok) return abandon(tools::kExitFailed, levels.reason);
    std::string summary, why;
    if (!predictLibraryResult(readings, &summary, &why)) return abandon(tools::kExitFailed, why);
    return save(summary);
}

bool GuidedCalibration::predictLibraryResult(const std::vector<float>& readings, std::string* summary,
                                             std::string* why) const {
    // The calibrators' own steps on a copy of the readings: what the save
    // will compute, or why it would fail (a failure there could delete the
    // earlier file). Their log lines are not for the terminal.
    LogRouter::install().setMuted(true);
    android::Vector<float> values;
    bool ok = false;
    if (mOptions.gesture == G::LOOK_AT_SCREEN) {
        for (float v : readings) values.push(v);
        LookAtScreenCalibrator::removeOutliers(&values, LookAtScreenCalibrator::kDefaultOutlierFraction);
        android::Vector<float> centers;
        if (values.size() >= static_cast<size_t>(LookAtScreenCalibrator::kDefaultMinNumSamples)) {
            centers.push(values[0]);
            centers.push(values[values.size() - 1]);
            ok = LookAtScreenCalibrator::calculateTwoClusters(values, LookAtScreenCalibrator::kDefaultMinClusterSize,
                                                              &centers) &&
                 centers.size() == 2;
        }
        const float lower = ok ? std::min(centers[0], centers[1]) : 0, upper = ok ? std::max(centers[0], centers[1]) : 0;
        ok = ok && upper - lower >= LookAtScreenCalibrator::kDefaultMinClusterSeparation;
        *summary = format("threshold %f (%.1f of the %.1f between the levels %.1f and %.1f) to %s",
                          LookAtScreenCalibrator::kDefaultThresholdFraction * (upper - lower),
                          LookAtScreenCalibrator::kDefaultThresholdFraction, upper - lower, lower, upper,
                          filesWritten(G::LOOK_AT_SCREEN)[0].c_str());
    } else {
        for (float v : readings) {
            values.push(std::min(std::max(v, static_cast<float>(DonDoffCalibrator::DON_VALUE_LOWER_BOUND)),
                                 static_cast<float>(DonDoffCalibrator::DON_VALUE_UPPER_BOUND)));
        }
        float minValue = 0, maxValue = 0;
        android::Vector<float> centers;
        if (values.size() >= static_cast<size_t>(DonDoffCalibrator::kMinNumSamples) &&
            DonDoffCalibrator::getMinMaxValue(values, &minValue, &maxValue)) {
            centers.push(minValue);
            centers.push(maxValue);
            ok = DonDoffCalibrator::calculateTwoClusters(&centers, values, DonDoffCalibrator::kMinClusterSize) &&
                 centers.size() == 2;
        }
        const float lower = ok ? std::min(centers[0], centers[1]) : 0, upper = ok ? std::max(centers[0], centers[1]) : 0;
        const float range = upper - lower;
        ok = ok && range >= DonDoffCalibrator::kMinClusterSeparation;
        // The thresholds follow from the levels by the calibrator's powers.
        // (truncated to whole readings, as the hub takes them).
        auto threshold = [lower](float span, float exponent) {
            return static_cast<unsigned>(lower + std::pow(span, exponent));
        };
        *summary = format("thresholds don %u, doff %u, don-max %u (levels %.1f and %.1f) to %s",
                          threshold(range, DonDoffCalibrator::kDonExponent),
                          threshold(range, DonDoffCalibrator::kDoffExponent),
                          threshold(maxValue - lower, DonDoffCalibrator::kDonMaxExponent), lower, upper,
                          filesWritten(G::DON)[0].c_str());
    }
    LogRouter::install().setMuted(false);
    if (!ok) *why = "the service would not find two levels far enough apart in these readings";
    return ok;
}

int GuidedCalibration::runWinks() {
    struct Progress {
        std::mutex lock;
        int accepted = 0;
        std::vector<std::string> news;  // lines for the wearer
        std::string ranges, detector;
    };
    auto progress = std::make_shared<Progress>();
    LogRouter& log = LogRouter::install();
    log.setObserver([progress](int, const std::string& tag, const std::string& message) {
        if (tag != "GazeService:MultiDurWinkDetector") return;
        std::lock_guard<std::mutex> lock(progress->lock);
        int ms = 0;
        if (message.find("WINK AS CALIBRATION") != std::string::npos) {
            ++progress->accepted;
            progress->news.push_back(format("wink %d accepted", progress->accepted));
        } else if (sscanf(message.c_str(), "Wink duration is out of the required range: %d ms", &ms) == 1) {
            progress->news.push_back(format("a wink of %d ms was not taken: hold each wink 320 to 700 ms", ms));
        } else if (message == "There is outlier in calibration winks.") {
            progress->news.push_back("the winks differ in strength; one more wink is needed");
        } else if (message.compare(0, 32, "Calibration wink magnitude range") == 0) {
            // "Calibration wink magnitude range: [a, b], duration range [c, d] ms."
            progress->ranges = message.substr(17, message.size() - 18);
        } else if (message.compare(0, 22, "Active detector index=") == 0) {
            progress->detector = "detector " + message.substr(22, message.find(',') - 22);
        }
    });
    say(format("calibrating WINK for up to %.0f s; Ctrl-C stops without saving.", mOptions.seconds));
    say("Wink deliberately with the eye the sensor watches, about 3 s apart, until two winks are accepted.");
    const auto start = std::chrono::steady_clock::now();
    int status = -1;
    std::string why;
    bool complete = false;
    while (status < 0) {
        {
            std::lock_guard<std::mutex> lock(progress->lock);
            for (const std::string& line : progress->news) say(line);
            progress->news.clear();
        }
        if (mInterrupted.load()) {
            status = tools::kExitInterrupted;
            why = "interrupted";
        } else if (!GazeClient::hubPresent()) {
            status = tools::kExitFailed;
            why = "the sensor hub disappeared";
        } else if ((complete = mClient->service()->isCalibrationCompleteForGesture(G::WINK))) {
            status = tools::kExitOk;
        } else if (std::chrono::steady_clock::now() - start > std::chrono::duration<double>(mOptions.seconds)) {
            status = tools::kExitFailed;
            std::lock_guard<std::mutex> lock(progress->lock);
            why = format("%d wink(s) accepted in %.0f s, and two consistent ones are needed", progress->accepted,
                         mOptions.seconds);
        } else {
            log.showHeldErrors();
            usleep(50000);
        }
    }
    log.setObserver(nullptr);
    if (!complete) return abandon(status, why);
    mClient->service()->endCalibrationIntervalForGesture(G::WINK);
    mIntervalOpen = false;
    std::lock_guard<std::mutex> lock(progress->lock);
    if (progress->accepted < 2) return abandon(tools::kExitFailed, "fewer than two winks were accepted");
    const std::vector<std::string> files = filesWritten(G::WINK);
    return save(format("%s, %s, from %d winks, to %s and %s", progress->ranges.c_str(), progress->detector.c_str(),
                       progress->accepted, files[0].c_str(), files[1].c_str()));
}

int GuidedCalibration::save(const std::string& summary) {
    const EyeGesture g = mOptions.gesture;
    if (mOptions.dryRun) {
        printf("%s calibration (dry run, nothing written): %s\n", GazeClient::name(g), summary.c_str());
        return tools::kExitOk;
    }
    const FileBackup backup(filesWritten(g));
    if (!mClient->service()->applyAndSaveCalibrationForGesture(g)) {
        const bool restored = backup.restore();
        say(format("the service could not save the %s calibration; %s (run with --log FILE for why)",
                   GazeClient::name(g), restored ? "the earlier files are back as they were" : "the earlier files could NOT be restored"));
        return tools::kExitFailed;
    }
    printf("%s calibration saved: %s\n", GazeClient::name(g), summary.c_str());
    return tools::kExitOk;
}

}  // namespace gazectl
}  // namespace velto
