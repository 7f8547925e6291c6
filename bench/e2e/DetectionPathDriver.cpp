// bench_e2e_path: feeds a fixed synthetic wearer through one gesture module
// with the shipped detector files, as the sensor's event thread feeds it, so
// that `valgrind --tool=callgrind` counts the instructions of the detection
// path per sample (bench/e2e/instructions.sh). Only the feeding loop is
// counted; making the signal and loading the files are not.
//
//   bench_e2e_path --module double-blink|look-at-screen|wink [--seconds S]
//
// Prints "MODULE SAMPLES DELIVERED DETECTIONS ALLOCATIONS": the samples
// streamed, those the module received (the wink module only listens in
// high-power mode), the gestures it reported and the heap allocations of the
// path after its first 10 s.
#include <android/log.h>
#include <sys/stat.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/AllocationCounter.h"
#include "modules/DoubleBlinkModule.h"
#include "modules/LookAtScreenModule.h"
#include "modules/WinkModule.h"
#include "service/GazeService.h"
#include "tools/cli/ToolCli.h"
#include "tools/gazeeval/ReplaySensor.h"
#include "tools/signal/EyeSignalModel.h"

using namespace velto;
typedef GazeServiceInterface G;

namespace {

const int64_t kPeriodNs = 31250000;  // 32 Hz
const int64_t kStartNs = 1000000000;
const size_t kWinkSamples = 16;  // 500 ms

void dropLogLine(const struct __android_logger_data*, const char*) {}

// A sensor that hands each sample to the data listeners registered at the
// moment, as the event thread does with its snapshot, and replays recent
// samples to a listener that asks for history before the next live one (the
// real sensor queues that replay for its event thread too).
class PathSensor : public gazetools::ReplaySensor {
public:
    void addProxDataListener(ProxDataListener* l) override { mListeners.push_back(l); }
    void addProxDataListener(ProxDataListener* l, long long historyMs) override {
        mListeners.push_back(l);
        if (historyMs >= 1 && mHistoryCount > 0) {
            const ProxData& newest = mHistory[(mHistoryNext + kHistory - 1) % kHistory];
            mReplays.push_back({l, newest.mTimestampNanos - historyMs * 1000000});
        }
    }
    void removeProxDataListener(ProxDataListener* l) override {
        for (size_t i = 0; i < mListeners.size(); ++i) {
            if (mListeners[i] == l) {
                mListeners.erase(mListeners.begin() + static_cast<long>(i));
                break;
            }
        }
    }
    PathSensor() {
        mListeners.reserve(4);
        mReplays.reserve(4);
    }

    // Returns how many samples listeners received, replays included. Keeps
    // to storage reserved up front, so that only the module allocates.
    size_t deliver(const ProxData& sample) {
        size_t n = 0;
        for (const Replay& r : mReplays) {
            for (size_t k = 0; k < mHistoryCount; ++k) {
                const ProxData& old = mHistory[(mHistoryNext + kHistory - mHistoryCount + k) % kHistory];
                if (old.mTimestampNanos <= r.horizonNs) continue;
                r.listener->onProxData(old);
                ++n;
            }
        }
        mReplays.clear();
        mHistory[mHistoryNext] = sample;
        mHistoryNext = (mHistoryNext + 1) % kHistory;
        if (mHistoryCount < kHistory) ++mHistoryCount;
        const size_t listeners = mListeners.size();
        for (size_t i = 0; i < listeners && i < mListeners.size(); ++i, ++n) mListeners[i]->onProxData(sample);
        return n;
    }

private:
    static constexpr size_t kHistory = 66;
    struct Replay {
        ProxDataListener* listener;
        int64_t horizonNs;
    };
    std::vector<ProxDataListener*> mListeners;
    std::vector<Replay> mReplays;
    ProxData mHistory[kHistory];
    size_t mHistoryNext = 0;
    size_t mHistoryCount = 0;
};

struct Counter : public G::GazeListenerInterface {
    std::atomic<int> count{0};
    void onEyeGesture(G::EyeGesture, int64_t, int64_t) override { count.fetch_add(1); }
};

struct Stream {
    std::vector<ProxData> samples;
    std::vector<size_t> winkStarts;  // sample indexes where a scheduled wink begins
};

// One wearer with spontaneous blinks and a deliberate gesture every 4 s.
Stream makeStream(double seconds, signal::SignalEventKind gesture) {
    signal::WearerProfile wearer;
    wearer.wornBaseline = 1300;
    wearer.blinkRatePerMin = 15;
    wearer.blinkAmplitude = 110;
    wearer.winkAmplitude = 260;
    wearer.lookShift = 140;
    signal::EyeSignalModel model(wearer, 21, kStartNs, true);
    Stream s;
    const size_t n = static_cast<size_t>(seconds * 32);
    const int64_t every = 4000000000LL;
    for (int64_t t = kStartNs + 2000000000LL; t < kStartNs + static_cast<int64_t>(seconds * 1e9) - every; t += every) {
        signal::SignalEvent e;
        e.kind = gesture;
        e.startNs = t;
        if (gesture == signal::SignalEventKind::Wink) e.durationNs = 500000000;
        if (gesture == signal::SignalEventKind::Look) e.durationNs = 2000000000;
        std::string error;
        if (model.schedule(e, &error)) s.winkStarts.push_back(static_cast<size_t>((t - kStartNs) / kPeriodNs));
    }
    for (size_t i = 0; i < n; ++i) {
        const int64_t t = kStartNs + static_cast<int64_t>(i) * kPeriodNs;
        s.samples.emplace_back(model.sample(t), t);
    }
    // The hub flags the samples of a wink its own detector saw.
    if (gesture == signal::SignalEventKind::Wink) {
        for (size_t start : s.winkStarts) {
            for (size_t i = start; i < start + kWinkSamples && i < n; ++i) s.samples[i].mData |= 0x4000;
        }
    }
    return s;
}

bool prepareRoot(std::string* root) {
    char dir[] = "/tmp/velto-bench-path-XXXXXX";
    if (mkdtemp(dir) == nullptr) return false;
    *root = dir;
    const std::string etc = *root + "/system/etc";
    return mkdir((*root + "/system").c_str(), 0755) == 0 && mkdir(etc.c_str(), 0755) == 0 &&
           symlink(VELTO_BENCH_GAZE_ETC, (etc + "/gaze").c_str()) == 0 &&
           mkdir((*root + "/data").c_str(), 0755) == 0 && mkdir((*root + "/data/system").c_str(), 0755) == 0 &&
           mkdir((*root + "/data/system/gaze").c_str(), 0755) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"bench_e2e_path: one gesture module's detection path on a fixed synthetic wearer"};
    std::string module;
    double seconds = 300;
    app.add_option("--module", module, "double-blink, look-at-screen or wink")
            ->required()
            ->check(CLI::IsMember({"double-blink", "look-at-screen", "wink"}));
    app.add_option("--seconds", seconds, "Length of the stream")->check(CLI::Range(30.0, 36000.0));
    tools::addVersionFlag(app, "bench_e2e_path");
    const int parsed = tools::parseCommandLine(app, "bench_e2e_path", argc, argv);
    if (parsed >= 0) return parsed;

    __android_log_set_logger(dropLogLine);
    std::string root;
    if (!prepareRoot(&root)) {
        perror("bench_e2e_path: cannot prepare a root");
        return 1;
    }
    setenv("VELTOGAZE_ROOT", root.c_str(), 1);
    GazeService* service = GazeService::getInstance();
    android::sp<Counter> counter = new Counter();
    service->setGazeListener(counter);

    PathSensor sensor;
    GazeServiceModuleInterface* m = nullptr;
    WinkModule* wink = nullptr;
    signal::SignalEventKind gesture = signal::SignalEventKind::DoubleBlink;
    if (module == "double-blink") {
        m = new DoubleBlinkModule(&sensor);
    } else if (module == "look-at-screen") {
        m = new LookAtScreenModule(&sensor);
        gesture = signal::SignalEventKind::Look;
    } else {
        m = wink = new WinkModule(&sensor);
        gesture = signal::SignalEventKind::Wink;
    }
    m->serviceReady();
    const Stream stream = makeStream(seconds, gesture);
    size_t first = 0;
    if (m->requiresCalibration()) {
        // The first 20 s calibrate the module, as a wearer does.
        m->beginCalibrationInterval();
        for (; first < 20 * 32u; ++first) sensor.deliver(stream.samples[first]);
        m->endCalibrationInterval();
        if (m->commitCalibration() != 0 || m->saveCalibration() != 0 || m->loadCalibration() != 0 ||
            !m->hasValidCalibration()) {
            fprintf(stderr, "bench_e2e_path: the %s calibration failed\n", module.c_str());
            return 1;
        }
    }
    if (m->start(false, -1) != 0) {
        fprintf(stderr, "bench_e2e_path: the %s module did not start\n", module.c_str());
        return 1;
    }
    const int before = counter->count.load();
    size_t delivered = 0, nextWink = 0;
    // Allocations are counted after the windows and rings have filled.
    const size_t warmUp = first + 10 * 32u;
    uint64_t allocationsBefore = 0;
    // The hub raises its wink interrupt one conversion after the wink.
    const size_t interruptDelay = kWinkSamples + 1;
    CALLGRIND_TOGGLE_COLLECT;
    for (size_t i = first; i < stream.samples.size(); ++i) {
        while (wink != nullptr && nextWink < stream.winkStarts.size() &&
               stream.winkStarts[nextWink] + interruptDelay <= i) {
            if (stream.winkStarts[nextWink] + interruptDelay == i) wink->onLowPowerWink();
            ++nextWink;
        }
        if (i == warmUp) allocationsBefore = bench::allocationCount();
        delivered += sensor.deliver(stream.samples[i]);
    }
    CALLGRIND_TOGGLE_COLLECT;
    const uint64_t allocations = bench::allocationCount() - allocationsBefore;
    m->stop();
    printf("%s %zu %zu %d %llu\n", module.c_str(), stream.samples.size() - first, delivered,
           counter->count.load() - before, static_cast<unsigned long long>(allocations));
    delete m;
    const std::string cleanup = "rm -rf '" + root + "'";
    return system(cleanup.c_str()) == 0 ? 0 : 1;
}
