#include "tools/gazectl/GazeClient.h"

#include <stdio.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>

#include "service/GazeService.h"

namespace velto {
namespace gazectl {

GazeClient::GazeClient() : mService(nullptr), mStartNanos(systemTime(SYSTEM_TIME_MONOTONIC)) {}

bool GazeClient::connect() {
    mService = GazeServiceInterface::getInstance();
    if (mService == nullptr) {
        fprintf(stderr, "gazectl: the gaze service is not available\n");
        return false;
    }
    if (!mService->isHardwareAvailable()) {
        fprintf(stderr, "gazectl: no sensor hub found (is VELTOGAZE_ROOT the simulator's root?)\n");
        return false;
    }
    mService->setGazeListener(this);
    if (!mService->start()) {
        fprintf(stderr, "gazectl: the gaze service did not start (see the log)\n");
        return false;
    }
    return true;
}

void GazeClient::onEyeGesture(EyeGesture gesture, int64_t, int64_t endTimeNanos) {
    GestureEvent event{gesture, endTimeNanos, static_cast<double>(endTimeNanos - mStartNanos) * 1e-9};
    std::function<void(const GestureEvent&)> printer;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mEvents.push_back(event);
        printer = mPrinter;
    }
    mChanged.notify_all();
    if (printer) printer(event);
}

void GazeClient::setPrinter(std::function<void(const GestureEvent&)> printer) {
    std::lock_guard<std::mutex> lock(mLock);
    mPrinter = std::move(printer);
}

std::vector<GestureEvent> GazeClient::events() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents;
}

size_t GazeClient::eventCount() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents.size();
}

bool GazeClient::waitForEvent(EyeGesture gesture, size_t after, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::any_of(mEvents.begin() + static_cast<long>(std::min(after, mEvents.size())), mEvents.end(),
                           [gesture](const GestureEvent& e) { return e.gesture == gesture; });
    });
}

bool GazeClient::parseGesture(const std::string& name, EyeGesture* out) {
    std::string upper;
    for (char c : name) upper += c == '-' ? '_' : static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (int g = 0; g < GazeServiceInterface::NUM_EYE_GESTURES; ++g) {
        if (upper == GazeService::eyeGestureAsString8(static_cast<EyeGesture>(g)).string()) {
            *out = static_cast<EyeGesture>(g);
            return true;
        }
    }
    return false;
}

const char* GazeClient::name(EyeGesture gesture) { return GazeService::eyeGestureAsString8(gesture).string(); }

}  // namespace gazectl
}  // namespace velto
