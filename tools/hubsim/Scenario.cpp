#include "tools/hubsim/Scenario.h"

#include <algorithm>
#include <cmath>

#include "tools/hubsim/HubModel.h"
#include "tools/signal/WearerProfile.h"

namespace velto {
namespace hubsim {

using signal::parseDouble;
using signal::parseInt64;

namespace {

bool parseCount(std::string_view text, int64_t min, int64_t max, int64_t* out) {
    int64_t v = 0;
    if (!parseInt64(text, &v) || v < min || v > max) return false;
    *out = v;
    return true;
}

bool fail(std::string* error, std::string message) {
    *error = std::move(message);
    return false;
}

// Optional arguments of a wearer event: one duration (with a unit) and one
// bare number (an amount), in any order.
bool parseEventArgs(const std::vector<std::string_view>& w, signal::SignalEvent* e,
                    std::string* error) {
    bool haveDuration = false, haveAmount = false;
    for (size_t i = 1; i < w.size(); ++i) {
        double amount = 0;
        int64_t ns = 0;
        if (parseDouble(w[i], &amount)) {
            if (haveAmount) return fail(error, "more than one amount");
            e->amount = amount;
            haveAmount = true;
        } else if (ScenarioParser::parseDuration(w[i], false, &ns)) {
            if (haveDuration || ns <= 0)
                return fail(error, "bad or repeated duration '" + std::string(w[i]) + "'");
            e->durationNs = ns;
            haveDuration = true;
        } else {
            return fail(error, "unexpected '" + std::string(w[i]) + "'");
        }
    }
    return true;
}

bool parseFault(const std::vector<std::string_view>& w, Action* a, std::string* error) {
    using F = Action::Fault;
    if (w.size() < 2) return fail(error, "fault needs a kind");
    const std::string_view kind = w[1];
    const size_t n = w.size();
    a->type = Action::Type::Fault;
    if (kind == "eio") {
        a->fault = F::Eio;
        if (n < 3 || n > 4) return fail(error, "usage: fault eio NAME [COUNT]");
        if (w[2] != "veltohub" && !HubModel::isAttributeName(w[2])) {
            return fail(error, "no attribute '" + std::string(w[2]) + "'");
        }
        a->target = std::string(w[2]);
        a->count = -1;
        if (n == 4 && !parseCount(w[3], 0, 1000000, &a->count)) return fail(error, "bad count");
        return true;
    }
    if (kind == "drop" || kind == "duplicate" || kind == "partial") {
        a->fault = kind == "drop" ? F::Drop : (kind == "duplicate" ? F::Duplicate : F::Partial);
        if (n != 3 || !parseCount(w[2], 1, 1000000, &a->count)) {
            return fail(error, "usage: fault " + std::string(kind) + " COUNT");
        }
        return true;
    }
    if (kind == "late" || kind == "jump") {
        a->fault = kind == "late" ? F::Late : F::Jump;
        if (n != 3 || !ScenarioParser::parseDuration(w[2], kind == "jump", &a->ns)) {
            return fail(error, "usage: fault " + std::string(kind) + " DURATION");
        }
        return true;
    }
    if (kind == "reset") {
        a->fault = F::Reset;
        return n == 2 ? true : fail(error, "usage: fault reset");
    }
    if (kind == "storm") {
        a->fault = F::Storm;
        a->ns = 1000000000;
        if (n < 4 || n > 5 || (w[2] != "don_doff" && w[2] != "wink") ||
            !parseCount(w[3], 1, 1000000, &a->count) ||
            (n == 5 && !ScenarioParser::parseDuration(w[4], false, &a->ns))) {
            return fail(error, "usage: fault storm don_doff|wink COUNT [DURATION]");
        }
        a->target = std::string(w[2]);
        return true;
    }
    if (kind == "flash") {
        a->fault = F::Flash;
        if (n != 3 || !parseCount(w[2], 1, 65535, &a->count))
            return fail(error, "usage: fault flash STATUS");
        return true;
    }
    return fail(error, "unknown fault '" + std::string(kind) + "'");
}

bool parseVersion(std::string_view text, int* major, int* minor) {
    const size_t dot = text.find('.');
    int64_t a = 0, b = 0;
    if (dot == std::string_view::npos || !parseCount(text.substr(0, dot), 0, 255, &a) ||
        !parseCount(text.substr(dot + 1), 0, 255, &b)) {
        return false;
    }
    *major = static_cast<int>(a);
    *minor = static_cast<int>(b);
    return true;
}

// Settings lines: false with an error when the line is a setting but wrong;
// `*handled` false when it is not a setting at all.
bool parseSetting(const std::vector<std::string_view>& w, Scenario* s, bool* handled,
                  std::string* error) {
    *handled = true;
    const std::string_view key = w[0];
    const size_t n = w.size();
    if (key == "seed") {
        int64_t v = 0;
        if (n != 2 || !parseCount(w[1], 0, INT64_MAX, &v)) return fail(error, "usage: seed N");
        s->seed = static_cast<uint64_t>(v);
        return true;
    }
    if (key == "wearer") {
        double v = 0;
        signal::WearerProfile probe;
        if (n != 3 || !parseDouble(w[2], &v)) return fail(error, "usage: wearer FIELD VALUE");
        if (!probe.set(std::string(w[1]), v)) {
            return fail(error, "unknown wearer field or value out of range: " + std::string(w[1]));
        }
        s->wearer.emplace_back(std::string(w[1]), v);
        return true;
    }
    if (key == "start") {
        if (n != 2 || (w[1] != "worn" && w[1] != "off"))
            return fail(error, "usage: start worn|off");
        s->startWorn = w[1] == "worn";
        return true;
    }
    if (key == "spontaneous") {
        if (n != 2 || (w[1] != "on" && w[1] != "off"))
            return fail(error, "usage: spontaneous on|off");
        s->spontaneous = w[1] == "on";
        return true;
    }
    if (key == "hub") {
        if (n < 3) return fail(error, "usage: hub version|bootloader|prox-version|clock|set ...");
        const std::string_view what = w[1];
        int64_t v = 0;
        if (what == "version" && n == 3) {
            if (w[2] == "none") {
                s->noVersion = true;
                return true;
            }
            if (!parseVersion(w[2], &s->versionMajor, &s->versionMinor)) {
                return fail(error, "version must be MAJOR.MINOR, each 0..255, or none");
            }
            s->hasVersionOverride = true;
            return true;
        }
        if ((what == "bootloader" || what == "prox-version") && n == 3 &&
            parseCount(w[2], 0, 1000000, &v)) {
            (what == "bootloader" ? s->bootloaderVersion : s->proxVersion) = static_cast<int>(v);
            return true;
        }
        if (what == "clock" && n == 3 &&
            ScenarioParser::parseDuration(w[2], false, &s->clockStartNs)) {
            return true;
        }
        if (what == "set" && n == 4 && HubModel::isAttributeName(w[2])) {
            s->hubSettings.emplace_back(std::string(w[2]), std::string(w[3]));
            return true;
        }
        return fail(error, "bad hub setting");
    }
    *handled = false;
    return true;
}

}  // namespace

bool ScenarioParser::parseDuration(std::string_view text, bool allowNegative, int64_t* ns) {
    static const struct {
        const char* unit;
        double scale;
    } kUnits[] = {{"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"min", 60e9}, {"s", 1e9}};
    for (const auto& u : kUnits) {
        const std::string_view unit(u.unit);
        if (text.size() <= unit.size() || text.substr(text.size() - unit.size()) != unit) continue;
        double v = 0;
        if (!parseDouble(text.substr(0, text.size() - unit.size()), &v)) return false;
        if (v < 0 && !allowNegative) return false;
        const double scaled = v * u.scale;
        // A day is more than any scenario needs and keeps sums far from overflow.
        if (std::fabs(scaled) > 86400e9 * 365) return false;
        *ns = static_cast<int64_t>(std::llround(scaled));
        return true;
    }
    return false;
}

bool ScenarioParser::parseAction(const std::vector<std::string_view>& w, Action* a,
                                 std::string* error) {
    if (w.empty()) return fail(error, "empty action");
    const std::string_view verb = w[0];
    signal::SignalEventKind kind;
    if (signal::signalEventKindFromName(std::string(verb).c_str(), &kind)) {
        a->type = Action::Type::Signal;
        a->event = signal::SignalEvent();
        a->event.kind = kind;
        return parseEventArgs(w, &a->event, error);
    }
    if (verb == "fault") return parseFault(w, a, error);
    if (verb == "set") {
        if (w.size() != 3 || !HubModel::isAttributeName(w[1]))
            return fail(error, "usage: set ATTRIBUTE VALUE");
        a->type = Action::Type::Set;
        a->target = std::string(w[1]);
        a->value = std::string(w[2]);
        return true;
    }
    if (verb == "debug") {
        a->type = Action::Type::Debug;
        a->words.clear();
        for (size_t i = 1; i < w.size(); ++i) {
            int64_t v = 0;
            if (!parseCount(w[i], 0, 0x7FFF, &v)) return fail(error, "debug words are 0..32767");
            a->words.push_back(static_cast<uint16_t>(v));
        }
        return w.size() > 1 ? true : fail(error, "usage: debug WORD...");
    }
    if (verb == "quit") {
        a->type = Action::Type::Quit;
        return w.size() == 1 ? true : fail(error, "usage: quit");
    }
    return fail(error, "unknown action '" + std::string(verb) + "'");
}

bool ScenarioParser::parse(std::string_view text, Scenario* out, signal::ParseError* error) {
    Scenario s;
    const std::vector<std::string_view> lines = signal::splitLines(text);
    int64_t last = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string_view line = lines[i];
        const size_t hash = line.find('#');
        if (hash != std::string_view::npos) line = line.substr(0, hash);
        std::vector<std::string_view> w = signal::splitFields(line);
        if (w.empty()) continue;
        const int lineNo = static_cast<int>(i) + 1;
        std::string why;
        if (w[0] == "at") {
            // "at T" from the start, or "at +T" after the previous action.
            TimedAction t;
            t.line = lineNo;
            if (w.size() < 3) {
                *error = {lineNo, "usage: at TIME ACTION..."};
                return false;
            }
            const bool relative = w[1][0] == '+';
            int64_t at = 0;
            if (!parseDuration(relative ? w[1].substr(1) : w[1], false, &at)) {
                *error = {lineNo, "bad time '" + std::string(w[1]) + "' (say 5s, 250ms, 2min)"};
                return false;
            }
            t.atNs = relative ? last + at : at;
            last = t.atNs;
            if (!parseAction(std::vector<std::string_view>(w.begin() + 2, w.end()), &t.action,
                             &why)) {
                *error = {lineNo, why};
                return false;
            }
            s.actions.push_back(std::move(t));
            continue;
        }
        bool handled = false;
        if (!parseSetting(w, &s, &handled, &why)) {
            *error = {lineNo, why};
            return false;
        }
        if (!handled) {
            *error = {lineNo,
                      "unknown line '" + std::string(w[0]) + "' (settings, or 'at TIME ACTION')"};
            return false;
        }
    }
    std::stable_sort(s.actions.begin(), s.actions.end(),
                     [](const TimedAction& a, const TimedAction& b) { return a.atNs < b.atNs; });
    *out = std::move(s);
    return true;
}

}  // namespace hubsim
}  // namespace velto
