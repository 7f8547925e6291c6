#include "tools/signal/SignalEvent.h"

#include <cstring>

namespace velto {
namespace signal {

namespace {
const char* const kNames[] = {"don",  "doff",        "blink", "wink",   "double-blink",
                              "look", "head-motion", "slip",  "adjust", "squint"};
}

const char* signalEventName(SignalEventKind kind) {
    return kNames[static_cast<int>(kind)];
}

bool signalEventKindFromName(const char* name, SignalEventKind* kind) {
    for (size_t i = 0; i < sizeof(kNames) / sizeof(kNames[0]); ++i) {
        if (strcmp(name, kNames[i]) == 0) {
            *kind = static_cast<SignalEventKind>(i);
            return true;
        }
    }
    return false;
}

}  // namespace signal
}  // namespace velto
