#ifndef VELTO_SIGNAL_LABEL_H
#define VELTO_SIGNAL_LABEL_H

#include <cstdint>

namespace velto {
namespace signal {

// What a span of a recording shows. The first ten are the names of the labels
// file; the rest are artefacts that no detector reports, written as comment
// lines so that a reader can see why a detector may have been fooled.
enum class LabelKind {
    Wink,
    DoubleBlink,
    Blink,
    LookAtScreen,
    LookAwayFromScreen,
    Don,
    Doff,
    CalibrateWink,
    CalibrateLookAtScreen,
    CalibrateDonDoff,
    HeadMotion,
    Slip,
    Squint,
    PartialBlink,  // beside the BLINK label of a blink that does not close the lid fully
};

const char* labelName(LabelKind kind);
// True for the artefact kinds that are written as comments.
bool isAnnotation(LabelKind kind);
// The kind named `name` (label names only, not annotations); false if unknown.
bool labelKindFromName(const char* name, LabelKind* kind);

// One labelled span, in nanoseconds of the recording's time stamps.
struct Label {
    int64_t startNs = 0;
    int64_t endNs = 0;
    LabelKind kind = LabelKind::Blink;
};

// Orders labels by start, then end, then kind: the order of a labels file.
bool labelBefore(const Label& a, const Label& b);

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_LABEL_H
