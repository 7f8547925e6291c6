#include "tools/signal/RecordingSession.h"

#include <algorithm>
#include <cmath>

#include "tools/signal/EyeSignalModel.h"
#include "tools/signal/LabelFile.h"
#include "tools/signal/Recording.h"
#include "tools/signal/SampleClock.h"

namespace velto {
namespace signal {

namespace {

const int64_t kSec = 1000000000;

int64_t sec(double s) {
    return static_cast<int64_t>(std::llround(s * 1e9));
}

// Builds the scripted part of a session on the model, in time order.
class Script {
public:
    Script(EyeSignalModel* model, Rng* rng, std::vector<Label>* spans)
        : mModel(model), mRng(rng), mSpans(spans) {}

    // Schedules an event; on success returns the end of its last label.
    bool add(SignalEventKind kind, int64_t at, int64_t duration = 0, double amount = NAN,
             int64_t* end = nullptr) {
        Label span;
        if (!mModel->schedule({kind, at, duration, amount}, nullptr, &span)) return false;
        int64_t e = span.endNs;
        // A look's label ends when the eye starts back; the return takes a
        // little longer.
        if (kind == SignalEventKind::Look) e += sec(0.4);
        if (end != nullptr) *end = e;
        return true;
    }

    void span(int64_t start, int64_t end, LabelKind kind) { mSpans->push_back({start, end, kind}); }

    EyeSignalModel* mModel;
    Rng* mRng;
    std::vector<Label>* mSpans;
};

// The calibrations at the start of a recording; returns when they are done.
int64_t calibrations(Script& s, int64_t t) {
    Rng& r = *s.mRng;
    int64_t end = t;

    // Don/doff: put on, take off, put on again, with time in each state.
    const int64_t ddStart = t;
    t += sec(r.uniform(0.5, 1.0));
    s.add(SignalEventKind::Don, t, 0, NAN, &end);
    t = end + sec(r.uniform(3, 6));
    s.add(SignalEventKind::Doff, t, 0, NAN, &end);
    t = end + sec(r.uniform(2, 4));
    s.add(SignalEventKind::Don, t, 0, NAN, &end);
    t = end + sec(r.uniform(2, 4));
    s.span(ddStart, t, LabelKind::CalibrateDonDoff);

    // Three deliberate winks, far enough apart for any detector's minimum
    // interval between winks.
    t += sec(r.uniform(2, 5));
    const int64_t winkStart = t;
    t += sec(r.uniform(1, 2));
    for (int i = 0; i < 3; ++i) {
        if (s.add(SignalEventKind::Wink, t, 0, NAN, &end)) t = end;
        t += sec(r.uniform(2, 3.5));
    }
    s.span(winkStart, t, LabelKind::CalibrateWink);

    // Looks at the screen and away from it.
    t += sec(r.uniform(2, 5));
    const int64_t lookStart = t;
    t += sec(r.uniform(1, 2));
    for (int i = 0; i < 3; ++i) {
        if (s.add(SignalEventKind::Look, t, sec(r.uniform(1.5, 3)), NAN, &end)) t = end;
        t += sec(r.uniform(1.5, 3));
    }
    s.span(lookStart, t, LabelKind::CalibrateLookAtScreen);
    return t;
}

// Wear after calibration: gestures and times off the head as Poisson
// processes at the wearer's rates, never overlapping each other.
void freeWear(Script& s, const WearerProfile& w, int64_t t, int64_t stopNs) {
    Rng& r = *s.mRng;
    const double gestureRate = w.winksPerMin + w.doubleBlinksPerMin + w.looksPerMin;
    const double doffRate = w.doffsPerHour / 60.0;
    const double total = gestureRate + doffRate;
    if (total <= 0) return;
    int64_t end = t;
    while (true) {
        t += sec(r.exponential(60.0 / total));
        if (t >= stopNs) break;
        double pick = r.uniform(0, total);
        if (pick < doffRate) {
            // Off the head for a while; now and then it lies face down on a
            // table, which reads higher than a face.
            const double offLevel = r.chance(0.05) ? r.uniform(2600, 5000) : NAN;
            if (!s.add(SignalEventKind::Doff, t, 0, offLevel, &end)) continue;
            t = end + sec(r.uniform(10, 180));
            if (t >= stopNs) break;
            s.add(SignalEventKind::Don, t, 0, NAN, &end);
            t = end + sec(2);
            continue;
        }
        pick -= doffRate;
        SignalEventKind kind = SignalEventKind::Look;
        if (pick < w.winksPerMin) {
            kind = SignalEventKind::Wink;
        } else if (pick < w.winksPerMin + w.doubleBlinksPerMin) {
            kind = SignalEventKind::DoubleBlink;
        }
        if (s.add(kind, t, 0, NAN, &end)) t = end + sec(1.8);
    }
}

}  // namespace

RecordingSession::Result RecordingSession::generate(const WearerProfile& wearer, uint64_t seed,
                                                    int64_t startNs, int64_t durationNs,
                                                    const std::vector<std::string>& recordingHeader,
                                                    const std::vector<std::string>& labelsHeader) {
    Result result;
    EyeSignalModel model(wearer, Rng::derive(seed, 10), startNs, false);
    Rng planRng(Rng::derive(seed, 11));
    std::vector<Label> spans;
    Script script(&model, &planRng, &spans);
    const int64_t stopNs = startNs + durationNs;

    int64_t t = startNs + sec(planRng.uniform(3, 8));
    t = calibrations(script, t);
    freeWear(script, wearer, t, stopNs - 5 * kSec);

    for (const std::string& h : recordingHeader) Recording::appendComment(&result.recording, h);
    SampleClock clock(startNs, wearer.clockPpm, wearer.jitterMs, wearer.sampleLossPerHour,
                      Rng::derive(seed, 12));
    result.recording.reserve(static_cast<size_t>(durationNs / 31250000 + 16) * 24);
    while (clock.peek() < stopNs) {
        const int64_t ts = clock.next();
        Recording::appendSample(&result.recording, {ts, model.sample(ts), false});
        ++result.samples;
    }

    std::vector<Label> labels = spans;
    model.takeLabels(INT64_MAX, &labels);
    // Events that the recording cuts short are not labelled.
    labels.erase(std::remove_if(labels.begin(), labels.end(),
                                [stopNs](const Label& l) { return l.endNs >= stopNs; }),
                 labels.end());
    std::sort(labels.begin(), labels.end(), labelBefore);
    result.labels = LabelFile::format(labelsHeader, labels);
    result.labelList = std::move(labels);
    return result;
}

}  // namespace signal
}  // namespace velto
