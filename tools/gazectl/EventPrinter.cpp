#include "tools/gazectl/EventPrinter.h"

#include <time.h>

#include <nlohmann/json.hpp>

#include "service/GazeService.h"

namespace velto {
namespace gazectl {

namespace {

std::string isoTime(int64_t wallNanos) {
    const time_t seconds = static_cast<time_t>(wallNanos / 1000000000);
    struct tm t;
    gmtime_r(&seconds, &t);
    char buf[48];
    snprintf(buf, sizeof(buf), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
             t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(wallNanos / 1000000 % 1000));
    return buf;
}

}  // namespace

void EventPrinter::add(const Event& event) {
    std::lock_guard<std::mutex> lock(mLock);
    mPending.push_back(event);
}

std::string EventPrinter::format(const Event& first, const Event& last, int count) const {
    const char* name = GazeService::eyeGestureAsString8(first.gesture).string();
    if (mJson) {
        nlohmann::json j = {{"gesture", name},
                            {"start_ns", first.startNanos},
                            {"end_ns", last.endNanos},
                            {"time", isoTime(first.wallNanos)}};
        if (count > 1) j["count"] = count;
        return j.dump();
    }
    char buf[160];
    const double at = static_cast<double>(first.endNanos - mStartNanos) * 1e-9;
    if (count > 1) {
        snprintf(buf, sizeof(buf), "%10.3f  %s x%d more within %.1f s (a burst, shown once)", at, name, count,
                 static_cast<double>(last.endNanos - first.endNanos) * 1e-9);
    } else {
        snprintf(buf, sizeof(buf), "%10.3f  %s", at, name);
    }
    return buf;
}

bool EventPrinter::print(int64_t nowNanos, bool flushAll) {
    std::vector<Event> pending;
    {
        std::lock_guard<std::mutex> lock(mLock);
        pending.swap(mPending);
    }
    std::vector<std::string> lines;
    for (const Event& e : pending) {
        Burst& b = mBursts[e.gesture < GazeServiceInterface::NUM_EYE_GESTURES ? e.gesture : 0];
        const bool continues = b.first.endNanos != 0 && e.endNanos - b.last.endNanos < kBurstGapNanos;
        if (continues) {
            // The first event of a burst was printed when it came; the rest wait.
            if (b.count == 0) b.first = e;
            ++b.count;
            b.last = e;
            continue;
        }
        if (b.count > 0) lines.push_back(format(b.first, b.last, b.count));
        lines.push_back(format(e, e, 1));
        b.first = b.last = e;
        b.count = 0;
    }
    for (Burst& b : mBursts) {
        if (b.count > 0 && (flushAll || nowNanos - b.last.endNanos >= kBurstGapNanos)) {
            lines.push_back(b.count == 1 ? format(b.last, b.last, 1) : format(b.first, b.last, b.count));
            b.count = 0;
        }
    }
    for (const std::string& line : lines) {
        if (fprintf(mOut, "%s\n", line.c_str()) < 0) return false;
        ++mPrinted;
    }
    return fflush(mOut) == 0;
}

}  // namespace gazectl
}  // namespace velto
