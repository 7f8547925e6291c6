#include "tools/signal/Label.h"

#include <cstring>

namespace velto {
namespace signal {

namespace {

const char* const kNames[] = {
        "WINK",
        "DOUBLE_BLINK",
        "BLINK",
        "LOOK_AT_SCREEN",
        "LOOK_AWAY_FROM_SCREEN",
        "DON",
        "DOFF",
        "CALIBRATE_WINK",
        "CALIBRATE_LOOK_AT_SCREEN",
        "CALIBRATE_DON_DOFF",
        "HEAD_MOTION",
        "SLIP",
        "SQUINT",
        "PARTIAL_BLINK",
};

const int kFirstAnnotation = static_cast<int>(LabelKind::HeadMotion);

}  // namespace

const char* labelName(LabelKind kind) {
    return kNames[static_cast<int>(kind)];
}

bool isAnnotation(LabelKind kind) {
    return static_cast<int>(kind) >= kFirstAnnotation;
}

bool labelKindFromName(const char* name, LabelKind* kind) {
    for (int i = 0; i < kFirstAnnotation; ++i) {
        if (strcmp(name, kNames[i]) == 0) {
            *kind = static_cast<LabelKind>(i);
            return true;
        }
    }
    return false;
}

bool labelBefore(const Label& a, const Label& b) {
    if (a.startNs != b.startNs) return a.startNs < b.startNs;
    if (a.endNs != b.endNs) return a.endNs < b.endNs;
    return static_cast<int>(a.kind) < static_cast<int>(b.kind);
}

}  // namespace signal
}  // namespace velto
