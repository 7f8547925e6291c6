#ifndef VELTO_HUBSIM_WAKELOCKS_H
#define VELTO_HUBSIM_WAKELOCKS_H

#include <string>
#include <string_view>
#include <vector>

namespace velto {
namespace hubsim {

// The kernel's user-space wake locks behind /sys/power/wake_lock and
// wake_unlock: writing a name takes or releases that lock (an optional
// timeout after a blank is accepted and ignored); reading wake_lock lists the
// held locks, wake_unlock those created and not held, separated by blanks.
class WakeLocks {
public:
    // 0 or an errno value: EINVAL for an empty name, or for releasing a name
    // that was never taken.
    int lock(std::string_view text);
    int unlock(std::string_view text);
    // The text of wake_lock (held) or wake_unlock (not held), with a newline.
    std::string listText(bool held) const;
    bool isHeld(std::string_view name) const;
    std::vector<std::string> held() const;

private:
    struct Lock {
        std::string name;
        bool held;
    };
    static std::string_view nameOf(std::string_view text);

    std::vector<Lock> mLocks;  // in order of creation
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_WAKELOCKS_H
