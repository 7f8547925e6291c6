#ifndef VELTO_TEST_LISTENERS_H
#define VELTO_TEST_LISTENERS_H

// Listeners that keep what reaches them. An event thread may deliver while the
// test thread reads, so every access takes the recorder's lock.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "sensor/ProximitySensorInterface.h"
#include "service/GazeServiceInterface.h"

namespace velto {
namespace test {

template <typename T>
class Recorded {
public:
    void add(const T& item) {
        std::lock_guard<std::mutex> l(mLock);
        mItems.push_back(item);
    }
    std::vector<T> all() const {
        std::lock_guard<std::mutex> l(mLock);
        return mItems;
    }
    size_t size() const {
        std::lock_guard<std::mutex> l(mLock);
        return mItems.size();
    }

private:
    mutable std::mutex mLock;
    std::vector<T> mItems;
};

struct Gesture {
    GazeServiceInterface::EyeGesture gesture;
    int64_t startNs;
    int64_t endNs;
};

// A client of the service.
struct GestureRecorder : public GazeServiceInterface::GazeListenerInterface, public Recorded<Gesture> {
    void onEyeGesture(GazeServiceInterface::EyeGesture g, int64_t startNs, int64_t endNs) override {
        add({g, startNs, endNs});
    }
    std::vector<GazeServiceInterface::EyeGesture> gestures() const {
        std::vector<GazeServiceInterface::EyeGesture> out;
        for (const Gesture& e : all()) out.push_back(e.gesture);
        return out;
    }
    int count(GazeServiceInterface::EyeGesture g) const {
        const std::vector<GazeServiceInterface::EyeGesture> seen = gestures();
        return static_cast<int>(std::count(seen.begin(), seen.end(), g));
    }
};

struct SampleRecorder : public ProximitySensorInterface::ProxDataListener, public Recorded<ProxData> {
    void onProxData(const ProxData& data) override { add(data); }
    std::vector<int64_t> stamps() const {
        std::vector<int64_t> out;
        for (const ProxData& d : all()) out.push_back(d.mTimestampNanos);
        return out;
    }
};

// The hub's don/doff verdicts and low-power winks.
struct InterruptRecorder : public ProximitySensorInterface::DonDoffListener,
                           public ProximitySensorInterface::LowPowerWinkListener {
    void onDonDoff(bool on) override { donned.add(on); }
    void onLowPowerWink() override { winks.fetch_add(1); }
    Recorded<bool> donned;
    std::atomic<int> winks{0};
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_TEST_LISTENERS_H
