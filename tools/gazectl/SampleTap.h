#ifndef VELTO_GAZECTL_SAMPLE_TAP_H
#define VELTO_GAZECTL_SAMPLE_TAP_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "sensor/ProximitySensorInterface.h"
#include "tools/signal/Recording.h"

namespace velto {
namespace gazectl {

// A data listener beside the service's own: it keeps every sample the sensor
// delivers, so a tool can follow the hub's clock as the library sees it
// (rather than the wall clock) and draw the signal afterwards.
class SampleTap : public virtual ProximitySensorInterface::ProxDataListener {
public:
    void onProxData(const ProxData& data) override;

    // Time stamp of the newest sample delivered; -1 before the first.
    int64_t newestNs() const;
    // Waits until a sample at or after `hubNs` has been delivered; false when
    // none came within `timeoutMs` of wall time.
    bool waitUntil(int64_t hubNs, int timeoutMs) const;
    std::vector<signal::RecordedSample> samples() const;

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<signal::RecordedSample> mSamples;
    int64_t mNewestNs = -1;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_SAMPLE_TAP_H
