#include "tools/hubsim/Simulation.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "tools/signal/Rng.h"
#include "tools/signal/TextFields.h"
#include "tools/signal/WearerProfile.h"

namespace velto {
namespace hubsim {

namespace {

// The first sample comes a little after the start, as after power-up.
const int64_t kFirstSampleNs = 20000000;
const int64_t kReplayLeadNs = 100000000;

HubConfig hubConfigFor(const Scenario& s, const FirmwareImage& image) {
    HubConfig c;
    c.installed = image;
    int major = 0, minor = 0;
    // A hub at another version runs another image: its bytes differ from the
    // shipped one, so a verification fails as well.
    if (s.hasVersionOverride &&
        (!image.version(&major, &minor) || major != s.versionMajor || minor != s.versionMinor)) {
        c.installed = FirmwareImage::make(s.versionMajor, s.versionMinor);
    }
    c.hasVersion = !s.noVersion;
    c.bootloaderVersion = s.bootloaderVersion;
    c.proxVersion = s.proxVersion;
    c.clockStartNs = s.clockStartNs;
    return c;
}

std::string u64(uint64_t v) {
    return std::to_string(v);
}

}  // namespace

Simulation::Simulation(const Scenario& scenario, const FirmwareImage& image)
    : mHub(hubConfigFor(scenario, image)), mActions(scenario.actions) {
    signal::WearerProfile wearer = signal::WearerProfile::draw(scenario.seed);
    for (const auto& kv : scenario.wearer) wearer.set(kv.first, kv.second);
    mModel = std::make_unique<signal::EyeSignalModel>(
            wearer, signal::Rng::derive(scenario.seed, 20), 0, scenario.startWorn);
    mModel->setSpontaneous(scenario.spontaneous);
    mClock = std::make_unique<signal::SampleClock>(kFirstSampleNs, wearer.clockPpm, wearer.jitterMs,
                                                   wearer.sampleLossPerHour,
                                                   signal::Rng::derive(scenario.seed, 21));
    configureHub(scenario);
}

Simulation::Simulation(const Scenario& scenario, const FirmwareImage& image,
                       std::vector<signal::RecordedSample> samples,
                       std::vector<signal::Label> labels)
    : mHub([&] {
          Scenario s = scenario;
          // The hub clock starts where the recording does, so the replayed
          // time stamps and labels need no shifting.
          if (!samples.empty()) s.clockStartNs = samples.front().timestampNs - kReplayLeadNs;
          return hubConfigFor(s, image);
      }()),
      mActions(scenario.actions),
      mReplay(true),
      mReplaySamples(std::move(samples)),
      mLabels(std::move(labels)) {
    if (!mReplaySamples.empty()) mReplayShift = mReplaySamples.front().timestampNs - kReplayLeadNs;
    configureHub(scenario);
}

void Simulation::configureHub(const Scenario& scenario) {
    for (const auto& kv : scenario.hubSettings) {
        const int err = mHub.write(kv.first, kv.second);
        if (err != 0) mWarnings.push_back("hub set " + kv.first + " " + kv.second + ": refused");
    }
}

int64_t Simulation::nextDueNs() const {
    int64_t next = INT64_MAX;
    if (mNextAction < mActions.size()) next = mActions[mNextAction].atNs;
    if (mReplay) {
        if (mReplayNext < mReplaySamples.size()) {
            // A recording that steps back in time is replayed in order, one
            // nanosecond later than its predecessor.
            next = std::min(next, std::max(mReplaySamples[mReplayNext].timestampNs - mReplayShift,
                                           mHub.simNow()));
        }
    } else {
        next = std::min(next, mClock->peek());
    }
    return next;
}

void Simulation::advanceTo(int64_t simNs) {
    while (!mQuit) {
        const int64_t due = nextDueNs();
        if (due > simNs) break;
        if (mNextAction < mActions.size() && mActions[mNextAction].atNs <= due) {
            // Actions go before a sample due at the same moment, so an event
            // at T shapes the sample at T.
            const TimedAction& t = mActions[mNextAction++];
            mHub.advanceTo(t.atNs);
            std::string why;
            if (!run(t.action, &why, nullptr)) {
                mWarnings.push_back("scenario line " + std::to_string(t.line) + ": " + why);
            }
            continue;
        }
        if (mReplay) {
            const signal::RecordedSample& s = mReplaySamples[mReplayNext++];
            mHub.onSample(due, s.reading);
        } else {
            const int64_t t = mClock->next();
            mHub.onSample(t, mModel->sample(t));
        }
    }
    mHub.advanceTo(simNs);
    if (mModel) {
        std::vector<signal::Label> done;
        mModel->takeLabels(mHub.simNow(), &done);
        for (signal::Label& l : done) {
            l.startNs = mHub.hubTimeAt(l.startNs);
            l.endNs = mHub.hubTimeAt(l.endNs);
            mLabels.push_back(l);
        }
    }
}

bool Simulation::run(const Action& a, std::string* error, signal::Label* span) {
    switch (a.type) {
        case Action::Type::Signal: {
            if (!mModel) {
                *error = "no wearer while replaying a recording";
                return false;
            }
            signal::SignalEvent e = a.event;
            // Starts right after the last sample, which is at or before now.
            e.startNs = mHub.simNow() + 1;
            if (!mModel->schedule(e, error, span)) {
                *error = std::string(signal::signalEventName(e.kind)) + " not possible: " + *error;
                return false;
            }
            return true;
        }
        case Action::Type::Fault:
            switch (a.fault) {
                case Action::Fault::Eio:
                    mHub.failOperations(a.target, static_cast<int>(a.count));
                    break;
                case Action::Fault::Drop:
                    mHub.dropPackets(static_cast<int>(a.count));
                    break;
                case Action::Fault::Duplicate:
                    mHub.duplicatePackets(static_cast<int>(a.count));
                    break;
                case Action::Fault::Late:
                    mHub.delayPackets(a.ns);
                    break;
                case Action::Fault::Jump:
                    mHub.jumpClock(a.ns);
                    break;
                case Action::Fault::Reset:
                    mHub.reset();
                    break;
                case Action::Fault::Storm:
                    mHub.storm(a.target == "wink" ? Interrupt::Wink : Interrupt::DonDoff,
                               static_cast<int>(a.count), a.ns);
                    break;
                case Action::Fault::Partial:
                    mHub.cutNextReads(static_cast<int>(a.count));
                    break;
                case Action::Fault::Flash:
                    mHub.forceFlashStatus(static_cast<int>(a.count));
                    break;
            }
            return true;
        case Action::Type::Set: {
            const int err = mHub.write(a.target, a.value);
            if (err != 0)
                *error = "set " + a.target + " refused (errno " + std::to_string(err) + ")";
            return err == 0;
        }
        case Action::Type::Debug:
            mHub.pushDebugWords(a.words);
            return true;
        case Action::Type::Quit:
            mQuit = true;
            return true;
    }
    return false;
}

std::string Simulation::query(const std::vector<std::string_view>& w) {
    const std::string_view verb = w[0];
    if (verb == "ping" && w.size() == 1) return "OK pong";
    if (verb == "now" && w.size() == 1) return "OK " + std::to_string(mHub.hubTime());
    if (verb == "get" && w.size() == 2) {
        std::string value;
        const int err = mHub.peek(w[1], &value);
        if (err != 0) return "ERR cannot read " + std::string(w[1]);
        while (!value.empty() && value.back() == '\n') value.pop_back();
        return "OK " + value;
    }
    if (verb == "writes" && w.size() == 2) {
        if (!HubModel::isAttributeName(w[1])) return "ERR no attribute " + std::string(w[1]);
        std::string out = "OK";
        for (const std::string& v : mHub.writesTo(w[1])) out += " " + v;
        return out;
    }
    if (verb == "wakelocks" && w.size() == 1) {
        std::string out = "OK";
        for (const std::string& n : mWakeLocks.held()) out += " " + n;
        return out;
    }
    if (verb == "stats" && w.size() == 1) {
        const HubModel::Stats s = mHub.stats();
        return "OK samples=" + u64(s.samples) + " made=" + u64(s.packetsMade) +
               " delivered=" + u64(s.packetsDelivered) + " queued=" + u64(mHub.queuedPackets()) +
               " overflows=" + u64(s.overflows) + " dropped=" + u64(s.dropped) +
               " duplicated=" + u64(s.duplicated) + " flashes=" + u64(s.flashes) +
               " don_doff_irqs=" + u64(mHub.interruptCount(Interrupt::DonDoff)) +
               " wink_irqs=" + u64(mHub.interruptCount(Interrupt::Wink)) +
               " donned=" + (mHub.donned() ? "1" : "0") +
               " hub_time=" + std::to_string(mHub.hubTime()) +
               " sim_time=" + std::to_string(mHub.simNow());
    }
    return "";
}

std::string Simulation::control(std::string_view line) {
    const std::vector<std::string_view> w = signal::splitFields(line);
    if (w.empty()) return "ERR empty command";
    const std::string answer = query(w);
    if (!answer.empty()) return answer;
    Action a;
    std::string why;
    if (!ScenarioParser::parseAction(w, &a, &why)) return "ERR " + why;
    signal::Label span;
    span.startNs = span.endNs = -1;
    if (!run(a, &why, &span)) return "ERR " + why;
    if (a.type == Action::Type::Signal) {
        return "OK " + std::to_string(mHub.hubTimeAt(span.startNs)) + " " +
               std::to_string(mHub.hubTimeAt(span.endNs));
    }
    return "OK";
}

void Simulation::takeLabels(std::vector<signal::Label>* out) {
    out->insert(out->end(), mLabels.begin(), mLabels.end());
    mLabels.clear();
}

void Simulation::takeWarnings(std::vector<std::string>* out) {
    out->insert(out->end(), mWarnings.begin(), mWarnings.end());
    mWarnings.clear();
}

}  // namespace hubsim
}  // namespace velto
