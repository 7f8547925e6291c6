#ifndef VELTO_SIGNAL_SIGNALEVENT_H
#define VELTO_SIGNAL_SIGNALEVENT_H

#include <cstdint>
#include <limits>

namespace velto {
namespace signal {

enum class SignalEventKind {
    Don,          // device put on
    Doff,         // device taken off
    Blink,        // one blink
    Wink,         // a deliberate wink
    DoubleBlink,  // two quick deliberate blinks
    Look,         // look at the screen for a while, then back
    HeadMotion,   // movement artefact
    Slip,         // the device slips: the worn level shifts and stays
    Adjust,       // the wearer pushes the device back: slips undone
    Squint,       // partial closure, not a gesture
};

const char* signalEventName(SignalEventKind kind);
// Parses the names used by scenarios ("don", "double-blink", ...).
bool signalEventKindFromName(const char* name, SignalEventKind* kind);

// A scripted event for one wearer. Zero durations and NaN amounts are drawn
// from the wearer's distributions.
struct SignalEvent {
    SignalEventKind kind = SignalEventKind::Blink;
    int64_t startNs = 0;
    // Blink, Wink, Squint: closure time; DoubleBlink: both blinks and the gap;
    // Look: time at the screen; HeadMotion: length of the movement.
    int64_t durationNs = 0;
    // Blink, Wink, Squint, HeadMotion: amplitude; Look: level shift; Slip:
    // offset; Doff: the reading while off (for a device lying face down).
    double amount = std::numeric_limits<double>::quiet_NaN();
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_SIGNALEVENT_H
