#ifndef VELTO_SIGNAL_EYESIGNALMODEL_H
#define VELTO_SIGNAL_EYESIGNALMODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/signal/Label.h"
#include "tools/signal/Rng.h"
#include "tools/signal/SignalEvent.h"
#include "tools/signal/WearerProfile.h"

namespace velto {
namespace signal {

// The proximity reading of one wearer over time. Scripted events (don, doff,
// gestures, artefacts) are scheduled ahead of time; spontaneous blinks,
// squints, head motion and slips arise by themselves at the wearer's rates.
// Every scheduled or spontaneous event leaves a label.
//
// Deterministic: the same wearer, seed, schedule and sample times give the
// same readings. Noise, spontaneous behaviour and the shapes of scripted
// events draw from separate streams, so scheduling one more event does not
// change the noise of the rest.
class EyeSignalModel {
public:
    EyeSignalModel(const WearerProfile& wearer, uint64_t seed, int64_t startNs, bool worn);

    // Turns the spontaneous behaviour on or off (on at construction).
    void setSpontaneous(bool on) { mSpontaneous = on; }

    // Schedules a scripted event. Fails with a reason when it starts before
    // the last sample, when an eye event falls where the device is not fully
    // on the head, when a don finds the device on (or a doff finds it off),
    // or when a don or doff overlaps another one. `span`, if given, receives
    // the event's main label.
    bool schedule(const SignalEvent& event, std::string* error, Label* span = nullptr);

    // The 14-bit reading at `tNs`; each call must be later than the last.
    uint16_t sample(int64_t tNs);

    // Whether the device is fully on the head at `tNs`, counting every don and
    // doff scheduled so far.
    bool wornAt(int64_t tNs) const;

    // Moves the labels that ended at or before `tNs` into `out`, in file order.
    void takeLabels(int64_t tNs, std::vector<Label>* out);

    const WearerProfile& wearer() const { return mWearer; }

private:
    struct LidClosure {
        int64_t start;
        int64_t end;
        double amplitude;
        double riseShare;
        double holdShare;
        double squeeze;  // ripple while a wink is held
        bool deliberate;
    };
    struct LookShift {
        int64_t start;
        int64_t away;
        int64_t end;
        double shift;
        double transitionNs;
        double tremorPhase;
    };
    struct Motion {
        int64_t start;
        int64_t end;
        double amplitude;
        double freq[3];
        double phase[3];
        double weight[3];
    };
    struct Slip {
        int64_t start;
        int64_t end;
        double delta;
    };
    struct WearChange {
        int64_t start;
        int64_t end;
        bool toWorn;
        double offLevel;  // the level while off after a doff
        double wobble;    // handling artefact while the device moves
        double wobbleHz;
        double spike;  // brief rise as the hand passes the sensor
        int64_t spikeStart;
        int64_t spikeEnd;
    };
    struct WearState {
        double weight;  // 0 off, 1 on, between while moving
        bool moving;
        double offLevel;
    };

    WearState wearStateAt(int64_t t) const;
    bool eyeBusy(int64_t from, int64_t to) const;
    bool fullyWornDuring(int64_t from, int64_t to) const;
    double pendingSlipOffset() const;

    void addLid(int64_t start, int64_t duration, double amplitude, double rise, double hold,
                double squeeze, bool deliberate);
    void addLabel(int64_t start, int64_t end, LabelKind kind);
    void runSpontaneous(int64_t t);
    // Starts a spontaneous blink at t; its length, or 0 when none could start.
    int64_t spawnBlink(int64_t t);
    void prune(int64_t t);

    // Time from the start of a blink of length `lastNs` to the next one.
    int64_t blinkInterval(int64_t lastNs);
    double closureAt(int64_t t) const;
    double lookAt(int64_t t) const;
    double motionAt(int64_t t) const;
    double slipAt(int64_t t) const;
    double handlingAt(int64_t t) const;

    WearerProfile mWearer;
    Rng mNoiseRng;
    Rng mHabitRng;
    Rng mEventRng;
    bool mSpontaneous = true;
    int64_t mLastNs;

    bool mWornBefore;  // state before the first kept wear change
    double mOffLevelBefore;
    double mSlipBase = 0;  // offsets of finished slips
    double mDrift = 0;
    double mOffWander = 0;

    int64_t mNextBlinkNs;
    int64_t mNextMotionNs;
    int64_t mNextSlipNs;
    int64_t mNextSquintNs;
    int64_t mAdjustNs = -1;  // a pending readjustment after a slip
    int64_t mNextPruneNs;

    std::vector<LidClosure> mLids;
    std::vector<LookShift> mLooks;
    std::vector<Motion> mMotions;
    std::vector<Slip> mSlips;
    std::vector<WearChange> mWear;
    std::vector<Label> mLabels;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_EYESIGNALMODEL_H
