#include "tools/hubsim/WakeLocks.h"

#include <cerrno>

namespace velto {
namespace hubsim {

std::string_view WakeLocks::nameOf(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    const size_t blank = text.find_first_of(" \t");
    return blank == std::string_view::npos ? text : text.substr(0, blank);
}

int WakeLocks::lock(std::string_view text) {
    const std::string_view name = nameOf(text);
    if (name.empty()) return EINVAL;
    for (Lock& l : mLocks) {
        if (l.name == name) {
            l.held = true;
            return 0;
        }
    }
    mLocks.push_back({std::string(name), true});
    return 0;
}

int WakeLocks::unlock(std::string_view text) {
    const std::string_view name = nameOf(text);
    for (Lock& l : mLocks) {
        if (l.name == name) {
            l.held = false;
            return 0;
        }
    }
    return EINVAL;
}

bool WakeLocks::isHeld(std::string_view name) const {
    for (const Lock& l : mLocks)
        if (l.name == name) return l.held;
    return false;
}

std::vector<std::string> WakeLocks::held() const {
    std::vector<std::string> out;
    for (const Lock& l : mLocks)
        if (l.held) out.push_back(l.name);
    return out;
}

std::string WakeLocks::listText(bool held) const {
    std::string out;
    for (const Lock& l : mLocks) {
        if (l.held != held) continue;
        if (!out.empty()) out += ' ';
        out += l.name;
    }
    return out + "\n";
}

}  // namespace hubsim
}  // namespace velto
