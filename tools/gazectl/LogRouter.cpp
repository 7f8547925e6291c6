#include "tools/gazectl/LogRouter.h"

#include <android/log.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <utils/Timers.h>

namespace velto {
namespace gazectl {

namespace {

void onLogLine(const struct __android_logger_data* data, const char* message) {
    LogRouter::install().handle(data->priority, data->tag, message);
}

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}

}  // namespace

LogRouter& LogRouter::install() {
    static LogRouter* router = [] {
        LogRouter* r = new LogRouter();  // lives as long as the process; the sensor thread may log at exit
        __android_log_set_logger(onLogLine);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        return r;
    }();
    return *router;
}

bool LogRouter::openFile(const std::string& path, std::string* error) {
    FILE* f = fopen(path.c_str(), "a");
    if (f == nullptr) {
        *error = "cannot write the log file " + path + ": " + strerror(errno);
        return false;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mFile = f;
    return true;
}

void LogRouter::setVerbose(bool verbose) {
    std::lock_guard<std::mutex> lock(mLock);
    mVerbose = verbose;
}

void LogRouter::setMuted(bool muted) {
    std::lock_guard<std::mutex> lock(mLock);
    mMuted = muted;
}

void LogRouter::setObserver(Observer observer) {
    std::lock_guard<std::mutex> lock(mLock);
    mObserver = std::move(observer);
}

std::string LogRouter::repeatKey(const std::string& tag, const std::string& message) {
    std::string key = tag + ": ";
    bool inNumber = false;
    for (char c : message) {
        const bool digit = (c >= '0' && c <= '9') || (inNumber && (c == '.' || c == '-'));
        if (digit && !inNumber) key += '#';
        if (!digit) key += c;
        inNumber = digit;
    }
    return key;
}

void LogRouter::handle(int priority, const char* tagText, const char* messageText) {
    const std::string tag = tagText != nullptr ? tagText : "";
    std::string message = messageText != nullptr ? messageText : "";
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
    Observer observer;
    {
        std::lock_guard<std::mutex> lock(mLock);
        observer = mObserver;
        if (mFile != nullptr) {
            struct timeval now;
            gettimeofday(&now, nullptr);
            struct tm t;
            localtime_r(&now.tv_sec, &t);
            fprintf(mFile, "%02d:%02d:%02d.%03d %c %s: %s\n", t.tm_hour, t.tm_min, t.tm_sec,
                    static_cast<int>(now.tv_usec / 1000), priorityLetter(priority), tag.c_str(), message.c_str());
            fflush(mFile);
        }
        if (mVerbose) {
            fprintf(stderr, "%c %s: %s\n", priorityLetter(priority), tag.c_str(), message.c_str());
        } else if (priority >= ANDROID_LOG_ERROR && !mMuted) {
            const std::string key = repeatKey(tag, message);
            auto seen = mRepeats.find(key);
            if (seen != mRepeats.end()) {
                ++seen->second;
            } else if (mShown < kMaxTerminalErrors) {
                ++mShown;
                mRepeats[key] = 0;
                mHeld.push_back({systemTime(SYSTEM_TIME_MONOTONIC), message});
            } else if (!mSaidMore) {
                mSaidMore = true;
                fprintf(stderr, "gazectl: more service errors; see --log FILE or --verbose\n");
            }
        }
    }
    // Outside the lock: an observer may log or take its own locks.
    if (observer) observer(priority, tag, message);
}

void LogRouter::showHeldErrors(bool all) {
    std::lock_guard<std::mutex> lock(mLock);
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    size_t shown = 0;
    while (shown < mHeld.size() && (all || now - mHeld[shown].atNanos >= kHoldNanos)) {
        if (!mMuted) fprintf(stderr, "gazectl: service error: %s\n", mHeld[shown].message.c_str());
        ++shown;
    }
    mHeld.erase(mHeld.begin(), mHeld.begin() + static_cast<long>(shown));
}

void LogRouter::dropHeldErrors() {
    std::lock_guard<std::mutex> lock(mLock);
    mHeld.clear();
    mRepeats.clear();
}

void LogRouter::finish() {
    showHeldErrors(true);
    std::lock_guard<std::mutex> lock(mLock);
    int repeats = 0;
    for (const auto& entry : mRepeats) repeats += entry.second;
    if (repeats > 0 && !mVerbose) {
        fprintf(stderr, "gazectl: the service errors above repeated %d more times%s\n", repeats,
                mFile != nullptr ? " (all in the log file)" : "");
    }
    mRepeats.clear();
    if (mFile != nullptr) fflush(mFile);
}

}  // namespace gazectl
}  // namespace velto
