#ifndef VELTO_PROX_DATA_DISCONTINUITY_LISTENER_H
#define VELTO_PROX_DATA_DISCONTINUITY_LISTENER_H

namespace velto {

// Implemented beside ProximitySensorInterface::ProxDataListener by a data
// listener that keeps time state on the hub's clock. With hub recovery on,
// the sensor tells each such listener (found with a cast, so the listener
// interface itself stays as outside clients build against it) that the
// hub's clock went back: samples from `toNs` on are on a new clock. Called
// once, after the first such sample, on the event thread with no sensor lock
// held.
class ProxDataDiscontinuityListener {
public:
    virtual ~ProxDataDiscontinuityListener() {}
    virtual void onProxDataDiscontinuity(long long fromNs, long long toNs) = 0;
};

}  // namespace velto

#endif  // VELTO_PROX_DATA_DISCONTINUITY_LISTENER_H
