#ifndef VELTO_HUBSIM_SCENARIO_H
#define VELTO_HUBSIM_SCENARIO_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/signal/SignalEvent.h"
#include "tools/signal/TextFields.h"

namespace velto {
namespace hubsim {

// Something the simulator does at a moment: an event of the wearer, a fault,
// or a change made from outside the library. The same actions come from
// scenario lines ("at 5s wink 500ms") and from the control socket ("wink
// 500ms").
struct Action {
    enum class Type { Signal, Fault, Set, Debug, Quit };
    enum class Fault { Eio, Drop, Duplicate, Late, Jump, Reset, Storm, Partial, Flash };

    Type type = Type::Signal;
    signal::SignalEvent event;  // Signal: start time filled in when it runs
    Fault fault = Fault::Eio;
    std::string
            target;     // Eio: attribute or "veltohub"; Storm: "don_doff" or "wink"; Set: attribute
    std::string value;  // Set: the text written
    int64_t count = 0;  // Eio (-1 = until cleared), Drop, Duplicate, Storm, Partial, Flash (status)
    int64_t ns = 0;     // Late, Jump, Storm (spread)
    std::vector<uint16_t> words;  // Debug
};

struct TimedAction {
    int64_t atNs = 0;  // simulation time, from the start
    int line = 0;      // where it came from, for messages
    Action action;
};

// Everything a scenario file says: settings that apply from the start and
// actions at their times.
struct Scenario {
    uint64_t seed = 1;
    std::vector<std::pair<std::string, double>> wearer;  // pinned wearer fields
    bool startWorn = true;
    bool spontaneous = true;
    bool hasVersionOverride = false;
    bool noVersion = false;
    int versionMajor = 0;
    int versionMinor = 0;
    int bootloaderVersion = 5;
    int proxVersion = 17;
    int64_t clockStartNs = 1000000000;
    std::vector<std::pair<std::string, std::string>> hubSettings;  // written before the start
    std::vector<TimedAction> actions;                              // in time order
};

class ScenarioParser {
public:
    // Reads a whole scenario. False with the line and reason on bad input.
    static bool parse(std::string_view text, Scenario* out, signal::ParseError* error);
    // Reads one action (the words after "at T", or a control line).
    static bool parseAction(const std::vector<std::string_view>& words, Action* out,
                            std::string* error);
    // "500ms", "2s", "1.5min", "-3s": a number with a unit (ns, us, ms, s,
    // min). `allowNegative` for clock jumps.
    static bool parseDuration(std::string_view text, bool allowNegative, int64_t* ns);

private:
    ScenarioParser() = delete;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_SCENARIO_H
