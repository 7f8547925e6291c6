#ifndef VELTO_GAZECTL_LOG_ROUTER_H
#define VELTO_GAZECTL_LOG_ROUTER_H

#include <stdint.h>
#include <stdio.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace velto {
namespace gazectl {

// Where the service's log lines go while gazectl runs. The library logs per
// sample and per step; a person at the terminal needs only what to act on.
//
// - Every line goes to the --log file when there is one, and to stderr with
//   --verbose.
// - Otherwise stderr sees only errors, each distinct message once (repeats
//   are counted and summed up at the end), at most a few per run, and none
//   while muted (while gazectl itself explains, e.g. at start or after the
//   hub went away). Errors are held a moment before they are shown.
// - An observer sees every line, for progress and state gazectl reads from
//   the service's own reports.
class LogRouter {
public:
    typedef std::function<void(int priority, const std::string& tag, const std::string& message)> Observer;

    // Installs the router as the process's log handler.
    static LogRouter& install();

    // false (with the reason) when the file cannot be opened for appending.
    bool openFile(const std::string& path, std::string* error);
    void setVerbose(bool verbose);
    void setMuted(bool muted);
    void setObserver(Observer observer);
    // Shows the errors held for at least kHoldNanos (all with `all`). An
    // error is held first because the lines of a hub going away come just
    // before its files vanish, and then gazectl says so itself.
    void showHeldErrors(bool all = false);
    // Drops the held errors.
    void dropHeldErrors();
    // Shows what is held and the repeat counts; called once before exit.
    void finish();

    // Messages differing only in their numbers count as the same message.
    static std::string repeatKey(const std::string& tag, const std::string& message);

    void handle(int priority, const char* tag, const char* message);

private:
    LogRouter() = default;

    static const int kMaxTerminalErrors = 3;
    static const int64_t kHoldNanos = 500000000;

    struct HeldError {
        int64_t atNanos;
        std::string message;
    };

    std::mutex mLock;
    FILE* mFile = nullptr;
    bool mVerbose = false;
    bool mMuted = false;
    bool mSaidMore = false;
    int mShown = 0;
    std::map<std::string, int> mRepeats;  // key -> times seen after it was shown
    Observer mObserver;
    std::vector<HeldError> mHeld;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_LOG_ROUTER_H
